// The file layer, redirection and the file copy.

#include <cstring>

#include "Platform/Here.h"
#include "engine/Operations.h"

namespace tarn::engine {
namespace {

constexpr uint32_t kFileBytes = 5000;

#if defined(_WIN32)
constexpr wchar_t kSystemLibrary[] = L"C:\\windows\\system32\\version.dll";
#else
constexpr wchar_t kSystemLibrary[] = L"/lib/x86_64-linux-gnu/libm.so.6";
#endif

Bytes Noise(Work& w, size_t count) {
  Bytes bytes(count);
  for (uint8_t& byte : bytes) byte = w.random.Byte();
  return bytes;
}

bool WriteFile(const std::wstring& name, const Bytes& bytes) {
  const T_FileHandle file = T_OsOpen(name.c_str(), T_OPEN_WRITE | T_OPEN_CREATE, 0, nullptr);
  const bool written = T_OsWriteBig(file, bytes.data(), bytes.size(), nullptr) == static_cast<int64_t>(bytes.size());
  return T_OsClose(file, nullptr) == 0 && written;
}

void ReadFile(const std::wstring& name, Bytes& bytes) {
  const T_FileHandle file = T_OsOpen(name.c_str(), T_OPEN_READ, T_SHARE_READ | T_SHARE_WRITE, nullptr);
  bytes.assign(2 * kFileBytes, 0);
  const int64_t got = T_OsReadBig(file, bytes.data(), bytes.size(), nullptr);
  bytes.resize(got < 0 ? 0 : static_cast<size_t>(got));
  T_OsClose(file, nullptr);
}

/// The system's functions one after the other; a failing one ends the walk.
int64_t WalkSystemFile(T_FileHandle file, const Bytes& bytes, Bytes& read) {
  const auto count = static_cast<int64_t>(bytes.size());
  if (T_OsWriteBig(file, bytes.data(), bytes.size(), nullptr) != count) return ERR_FILE_WRITE;
  if (T_OsSeek(file, 100, T_SEEK_START, nullptr) != 100) return ERR_FILE_SEEK;
  if (T_OsWrite(file, bytes.data(), 50, nullptr) != 50) return ERR_FILE_WRITE;
  if (T_OsSeekBig(file, -1000, T_SEEK_END, nullptr) != count - 1000) return ERR_FILE_SEEK;
  if (T_OsWrite(file, nullptr, 0, nullptr) != 0) return ERR_FILE_WRITE;
  if (T_OsSetFileSize(file, count + 20) != 0) return ERR_FILE_WRITE;
  if (T_OsSeek(file, -(count + 20) + 1, T_SEEK_END, nullptr) != 1) return ERR_FILE_SEEK;
  read.assign(bytes.size() + 19, 0xCC);
  if (T_OsRead(file, read.data(), 30, nullptr) != 30) return ERR_FILE_READ;
  if (T_OsReadBig(file, read.data() + 30, read.size() - 30, nullptr) != static_cast<int64_t>(read.size() - 30))
    return ERR_FILE_READ;
  return SUCCESS;
}

int64_t WalkRedirectedFile(T_FileHandle file, const Bytes& bytes, Bytes& read) {
  if (T_RedirectedWriteBig(file, bytes.data(), bytes.size()) != static_cast<int64_t>(bytes.size()))
    return ERR_FILE_WRITE;
  if (T_RedirectedSeek(file, 40000, T_SEEK_START) != 40000) return ERR_FILE_SEEK;
  if (T_RedirectedWrite(file, bytes.data(), kFileBytes) != kFileBytes) return ERR_FILE_WRITE;
  if (T_RedirectedSeek(file, 1, T_SEEK_START) != 1) return ERR_FILE_SEEK;
  read.assign(40000 + kFileBytes - 1, 0xCC);
  if (T_RedirectedRead(file, read.data(), 1) != 1) return ERR_FILE_READ;
  if (T_RedirectedReadBig(file, read.data() + 1, read.size() - 1) != static_cast<int64_t>(read.size() - 1))
    return ERR_FILE_READ;
  return SUCCESS;
}

constexpr uint32_t kRedirectedBytes = 40000;  // beyond the first growth of a memory file

int64_t UseBuffer(Work& w, const Bytes& bytes) {
  T_BufferRedirect* redirect = nullptr;
  T_FileHandle file = -1;
  int64_t status =
      T_StartRedirectToBuffer(&redirect, &file, T_BUFFER_GROW | T_BUFFER_SHRINK | T_BUFFER_WRITE, nullptr, 0);
  if (status != SUCCESS) return status;
  if (T_RedirectedOpen(L"any", T_OPEN_READ_WRITE | T_OPEN_CREATE, 0) != file) status = ERR_INVALID_PARAMETER;
  if (status == SUCCESS) status = WalkRedirectedFile(file, bytes, w.buffer);
  if (T_RedirectedClose(file) != 0) status = ERR_INVALID_PARAMETER;
  void* block = nullptr;
  uint64_t length = 0;
  T_StopRedirectToBuffer(redirect, &block, &length);
  if (status == SUCCESS) {
    const auto* const start = static_cast<const uint8_t*>(block);
    w.buffer.insert(w.buffer.end(), start, start + length);
  }
  const Here here = TARN_HERE;
  T_GlobalFree(block, here.line, here.file);
  return status;
}

const std::vector<int64_t> kWalking = {ERR_FILE_READ, ERR_FILE_WRITE, ERR_FILE_SEEK};

}  // namespace

void AddFileOperations(std::vector<Operation>& table) {
  table.push_back({.name = "T_CopyFile",
                   .depths = DepthBit(1),
                   .failures = {0},
                   .leaves = kPartialFile,
                   .endsAtNothing = true,
                   .prepare =
                       [](Work& w) {
                         w.source = w.FileName(L"source");
                         w.target = w.FileName(L"target");
                         WriteFile(w.source, Noise(w, kFileBytes));
                       },
                   .call =
                       [](Work& w) {
                         const int64_t status = T_CopyFile(w.source.c_str(), w.target.c_str(), 0);
                         return status;
                       },
                   .finish = [](Work& w) { ReadFile(w.target, w.buffer); }});
  table.push_back({.name = "T_OsCreat and the system's files",
                   .depths = DepthBit(1),
                   .failures = kWalking,
                   .prepare = [](Work& w) { w.target = w.FileName(L"walked"); },
                   .call = [](Work& w) -> int64_t {
                     Random random(7);
                     Bytes bytes(kFileBytes);
                     for (uint8_t& byte : bytes) byte = random.Byte();
                     const T_FileHandle file = T_OsCreat(w.target.c_str(), T_ATTRIBUTE_DELETE_ON_CLOSE);
                     if (file == -1) return ERR_FILE_WRITE;
                     int64_t status = WalkSystemFile(file, bytes, w.buffer);
                     if (T_OsClose(file, nullptr) != 0 && status == SUCCESS) status = ERR_FILE_WRITE;
                     return status;
                   }});
  table.push_back({.name = "T_RedirectedOpen and the files behind it",
                   .depths = DepthBit(1),
                   .failures = kWalking,
                   .leaves = kPartialFile,
                   .prepare = [](Work& w) { w.target = w.FileName(L"redirected"); },
                   .call = [](Work& w) -> int64_t {
                     const Bytes bytes(kRedirectedBytes, 0x3C);
                     const T_FileHandle file = T_RedirectedOpen(w.target.c_str(), T_OPEN_READ_WRITE | T_OPEN_CREATE, 0);
                     if (file == -1) return ERR_FILE_WRITE;
                     int64_t status = WalkRedirectedFile(file, bytes, w.buffer);
                     if (T_RedirectedClose(file) != 0 && status == SUCCESS) status = ERR_FILE_WRITE;
                     return status;
                   }});
  table.push_back({.name = "T_StartRedirectToBuffer",
                   .depths = DepthBit(1),
                   .failures = {ERR_NO_MEMORY, ERR_FILE_WRITE},
                   .call = [](Work& w) { return UseBuffer(w, Bytes(kRedirectedBytes, 0xA5)); }});
  table.push_back({.name = "T_OsGetTempName",
                   .depths = DepthBit(1),
                   .failures = {ERR_FILE_WRITE, ERR_DISK_FULL},
                   .call = [](Work& w) -> int64_t {
                     wchar_t name[512];
                     const int32_t status = T_OsGetTempName(nullptr, name, 512);
                     if (status == SUCCESS) w.target = name;
                     return status;
                   },
                   .finish = [](Work& w) { w.buffer.assign(1, T_OsDelete(w.target.c_str()) == 0); }});
  table.push_back(
      {.name = "T_OsGetTempNameA",
       .depths = DepthBit(1),
       .failures = {ERR_FILE_WRITE, ERR_DISK_FULL, ERR_NO_MEMORY},
       .call = [](Work& w) -> int64_t {
         w.buffer.assign(512, 0);
         return T_OsGetTempNameA(nullptr, reinterpret_cast<char*>(w.buffer.data()), 512);
       },
       .finish =
           [](Work& w) { w.buffer.assign(1, T_OsDeleteA(reinterpret_cast<const char*>(w.buffer.data())) == 0); }});
  table.push_back(
      {.name = "T_NarrowToWide", .depths = DepthBit(1), .failures = {ERR_NO_MEMORY}, .call = [](Work& w) -> int64_t {
         wchar_t* wide = nullptr;
         const int32_t status = T_NarrowToWide("narrow", &wide);
         w.buffer.assign(1, status == SUCCESS && std::wstring(wide) == L"narrow");
         T_FreeText(wide);
         return status;
       }});
  table.push_back(
      {.name = "T_WideToNarrow", .depths = DepthBit(1), .failures = {ERR_NO_MEMORY}, .call = [](Work& w) -> int64_t {
         char* narrow = nullptr;
         const int32_t status = T_WideToNarrow(L"wide", &narrow);
         w.buffer.assign(1, status == SUCCESS && std::string(narrow) == "wide");
         T_FreeText(narrow);
         return status;
       }});
  table.push_back(
      {.name = "T_LoadLibrary", .depths = DepthBit(1), .failures = {ERR_NO_MEMORY}, .call = [](Work&) -> int64_t {
         T_Library* library = nullptr;
         const int32_t status = T_LoadLibrary(&library, kSystemLibrary);
         T_UnloadLibrary(library);
         return status;
       }});
}

}  // namespace tarn::engine
