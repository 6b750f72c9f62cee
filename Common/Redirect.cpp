// The five redirectable file operations of each thread, and the block of memory that can stand in for a file.

#include <algorithm>
#include <cstring>
#include <utility>

#include "Common/Internal/Chunks.h"
#include "Common/Internal/Settings.h"
#include "Platform/Here.h"
#include "tarn/files.h"
#include "tarn/memory.h"
#include "tarn/types.h"

struct T_BufferRedirect {
  uint8_t* Buffer;
  uint64_t Capacity;  // bytes that may be used of Buffer; 0 without one
  uint64_t Length;    // bytes of file data, at most Capacity
  uint64_t Position;  // any value: seeks are not bounded
  uint32_t Flags;     // T_BUFFER_...
  // The buffer's own functions before the start, the table that they displaced afterwards.
  T_OpenCallback Open;
  T_ReadCallback Read;
  T_WriteCallback Write;
  T_SeekCallback Seek;
  T_CloseCallback Close;
  void* UserData[5];  // in the same order
};

using tarn::RedirectTable;
using tarn::ThreadSettings;

// ---- The table -----------------------------------------------------------------------------------------------------

template <class Callback>
static void ExchangeCallback(Callback& current, Callback* given) noexcept {
  if (!given) return;
  const Callback previous = current;
  if (*given) current = *given;
  *given = previous;
}

static void ExchangeData(void*& current, void** given) noexcept {
  if (given) std::swap(current, *given);
}

void T_RedirectIO(T_OpenCallback open, T_ReadCallback read, T_WriteCallback write, T_SeekCallback seek,
                  T_CloseCallback close, void* userData) noexcept {
  ThreadSettings().redirect = {.open = open ? open : T_OsOpen,
                               .read = read ? read : T_OsRead,
                               .write = write ? write : T_OsWrite,
                               .seek = seek ? seek : T_OsSeek,
                               .close = close ? close : T_OsClose,
                               .openData = userData,
                               .readData = userData,
                               .writeData = userData,
                               .seekData = userData,
                               .closeData = userData};
}

void T_FilterIO(T_OpenCallback* open, T_ReadCallback* read, T_WriteCallback* write, T_SeekCallback* seek,
                T_CloseCallback* close, void** openData, void** readData, void** writeData, void** seekData,
                void** closeData) noexcept {
  RedirectTable& table = ThreadSettings().redirect;
  ExchangeCallback(table.open, open);
  ExchangeCallback(table.read, read);
  ExchangeCallback(table.write, write);
  ExchangeCallback(table.seek, seek);
  ExchangeCallback(table.close, close);
  ExchangeData(table.openData, openData);
  ExchangeData(table.readData, readData);
  ExchangeData(table.writeData, writeData);
  ExchangeData(table.seekData, seekData);
  ExchangeData(table.closeData, closeData);
}

void* T_GetFilterIOData(void** openData, void** readData, void** writeData, void** seekData,
                        void** closeData) noexcept {
  const RedirectTable& table = ThreadSettings().redirect;
  void* last = nullptr;
  if (openData) *openData = last = table.openData;
  if (readData) *readData = last = table.readData;
  if (writeData) *writeData = last = table.writeData;
  if (seekData) *seekData = last = table.seekData;
  if (closeData) *closeData = last = table.closeData;
  return last;
}

// ---- The operations ------------------------------------------------------------------------------------------------

T_FileHandle T_RedirectedOpen(const wchar_t* name, int32_t flags, int32_t mode) noexcept {
  const RedirectTable& table = ThreadSettings().redirect;
  return table.open(name, flags, mode, table.openData);
}

int64_t T_RedirectedRead(T_FileHandle file, void* buffer, uint32_t bytes) noexcept {
  const RedirectTable& table = ThreadSettings().redirect;
  return table.read(file, buffer, bytes, table.readData);
}

int64_t T_RedirectedWrite(T_FileHandle file, const void* buffer, uint32_t bytes) noexcept {
  const RedirectTable& table = ThreadSettings().redirect;
  return table.write(file, buffer, bytes, table.writeData);
}

int64_t T_RedirectedSeek(T_FileHandle file, int64_t offset, int32_t origin) noexcept {
  const RedirectTable& table = ThreadSettings().redirect;
  return table.seek(file, offset, origin, table.seekData);
}

int32_t T_RedirectedClose(T_FileHandle file) noexcept {
  const RedirectTable& table = ThreadSettings().redirect;
  return table.close(file, table.closeData);
}

int64_t T_RedirectedReadBig(T_FileHandle file, void* buffer, uint64_t bytes) noexcept {
  return tarn::MoveInChunks(static_cast<uint8_t*>(buffer), bytes,
                            [=](uint8_t* at, uint32_t count) { return T_RedirectedRead(file, at, count); });
}

int64_t T_RedirectedWriteBig(T_FileHandle file, const void* buffer, uint64_t bytes) noexcept {
  return tarn::MoveInChunks(static_cast<const uint8_t*>(buffer), bytes,
                            [=](const uint8_t* at, uint32_t count) { return T_RedirectedWrite(file, at, count); });
}

// ---- A block of memory as a file -----------------------------------------------------------------------------------

namespace tarn {
namespace {

constexpr uint64_t kGrowthBytes = 32768;

/// Makes room for `end` bytes when the buffer may grow; without memory the buffer stays as it is.
void Grow(T_BufferRedirect& file, uint64_t end) noexcept {
  const uint64_t wanted = (end + kGrowthBytes - 1) & ~(kGrowthBytes - 1);
  if (wanted < end) return;
  const Here here = TARN_HERE;
  void* const grown = file.Buffer ? T_GlobalRealloc(file.Buffer, wanted, here.line, here.file)
                                  : T_GlobalAlloc(1, wanted, here.line, here.file);
  if (!grown) return;
  file.Buffer = static_cast<uint8_t*>(grown);
  file.Capacity = wanted;
}

extern "C" {

T_FileHandle BufferOpen(const wchar_t*, int32_t flags, int32_t, void* userData) noexcept {
  T_BufferRedirect& file = *static_cast<T_BufferRedirect*>(userData);
  file.Position = 0;
  if (flags & T_OPEN_TRUNCATE) file.Length = 0;
  return T_BUFFER_FILE;
}

int64_t BufferRead(T_FileHandle handle, void* buffer, uint32_t bytes, void* userData) noexcept {
  T_BufferRedirect& file = *static_cast<T_BufferRedirect*>(userData);
  if (handle != T_BUFFER_FILE || !buffer || !file.Buffer || file.Position > file.Length) return -1;
  const uint64_t count = std::min<uint64_t>(bytes, file.Length - file.Position);
  std::memcpy(buffer, file.Buffer + file.Position, count);
  file.Position += count;
  return static_cast<int64_t>(count);
}

int64_t BufferWrite(T_FileHandle handle, const void* buffer, uint32_t bytes, void* userData) noexcept {
  T_BufferRedirect& file = *static_cast<T_BufferRedirect*>(userData);
  if (handle != T_BUFFER_FILE || !buffer || !(file.Flags & T_BUFFER_WRITE)) return -1;
  if (bytes == 0) {
    if (file.Position > file.Capacity) return -1;
    file.Length = file.Position;
    return 0;
  }
  uint64_t end;
  if (__builtin_add_overflow(file.Position, bytes, &end)) return -1;
  if (end > file.Capacity && (file.Flags & T_BUFFER_GROW)) Grow(file, end);
  if (file.Position > file.Capacity) return -1;
  const uint64_t count = std::min<uint64_t>(bytes, file.Capacity - file.Position);
  if (count) std::memcpy(file.Buffer + file.Position, buffer, count);
  file.Position += count;
  file.Length = std::max(file.Length, file.Position);
  return static_cast<int64_t>(count);
}

int64_t BufferSeek(T_FileHandle, int64_t offset, int32_t origin, void* userData) noexcept {
  T_BufferRedirect& file = *static_cast<T_BufferRedirect*>(userData);
  switch (origin) {
    case T_SEEK_START:
      file.Position = static_cast<uint64_t>(offset);
      break;
    case T_SEEK_CURRENT:
      file.Position += static_cast<uint64_t>(offset);
      break;
    case T_SEEK_END:
      file.Position = file.Length + static_cast<uint64_t>(offset);
      break;
    default:
      return -1;
  }
  return static_cast<int64_t>(file.Position);
}

int32_t BufferClose(T_FileHandle handle, void* userData) noexcept {
  T_BufferRedirect& file = *static_cast<T_BufferRedirect*>(userData);
  if (handle != T_BUFFER_FILE) return -1;
  constexpr uint32_t kRules = T_BUFFER_GROW | T_BUFFER_SHRINK | T_BUFFER_CONTENTS;
  if (file.Length < file.Capacity && (file.Flags & kRules) == (T_BUFFER_GROW | T_BUFFER_SHRINK)) {
    const Here here = TARN_HERE;
    if (void* const shrunk = T_GlobalRealloc(file.Buffer, file.Length, here.line, here.file))
      file.Buffer = static_cast<uint8_t*>(shrunk);
    file.Capacity = file.Length;
  }
  return 0;
}

}  // extern "C"

/// Exchanges the record's callbacks and user data with the thread's table.
void ExchangeTables(T_BufferRedirect& file) noexcept {
  T_FilterIO(&file.Open, &file.Read, &file.Write, &file.Seek, &file.Close, &file.UserData[0], &file.UserData[1],
             &file.UserData[2], &file.UserData[3], &file.UserData[4]);
}

}  // namespace
}  // namespace tarn

int32_t T_StartRedirectToBuffer(T_BufferRedirect** redirect, T_FileHandle* file, uint32_t flags, void* buffer,
                                uint64_t size) noexcept {
  if (!redirect) return ERR_INVALID_PARAMETER;
  const tarn::Here here = TARN_HERE;
  T_BufferRedirect* const made =
      static_cast<T_BufferRedirect*>(T_LocalAllocInit(1, sizeof *made, here.line, here.file));
  if (!made) return ERR_NO_MEMORY;
  made->Buffer = static_cast<uint8_t*>(buffer);
  made->Capacity = buffer ? size : 0;
  made->Length = flags & T_BUFFER_CONTENTS ? made->Capacity : 0;
  made->Flags = flags;
  made->Open = tarn::BufferOpen;
  made->Read = tarn::BufferRead;
  made->Write = tarn::BufferWrite;
  made->Seek = tarn::BufferSeek;
  made->Close = tarn::BufferClose;
  for (void*& userData : made->UserData) userData = made;
  tarn::ExchangeTables(*made);
  *redirect = made;
  if (file) *file = T_BUFFER_FILE;
  return SUCCESS;
}

int32_t T_StopRedirectToBuffer(T_BufferRedirect* redirect, void** buffer, uint64_t* length) noexcept {
  if (!redirect) return ERR_INVALID_PARAMETER;
  tarn::ExchangeTables(*redirect);
  if (buffer) *buffer = redirect->Buffer;
  if (length) *length = redirect->Length;
  const tarn::Here here = TARN_HERE;
  T_LocalFree(redirect, here.line, here.file);
  return SUCCESS;
}
