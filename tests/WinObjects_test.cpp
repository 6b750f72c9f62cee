// Tracked system objects, on Windows and under Wine without a display. Each row makes an object through the wrapper and
// the same through the system's own function, which says what is right and whether this machine can make it at all.

#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "Common/Internal/Ledger.h"
#include "Platform/Fault.h"
#include "tarn/windows.h"

#if defined(_WIN32)

namespace tarn::test {
namespace {

constexpr const wchar_t* kFile = L".\\tests\\WinObjects";

using Make = void* (*)(uint32_t line, const wchar_t* file);
using Release = int (*)(void* object, uint32_t line, const wchar_t* file);

struct Row {
  const char* name;
  Make make;
  void* (*windows)();
  Release release;
  bool always;  // false: needs what a machine may lack
};

/// Live system objects of the ledger as (object, line) pairs; every file text must be kFile.
std::vector<std::pair<const void*, uint32_t>> Live() {
  static std::vector<std::pair<const void*, uint32_t>> live;
  live.clear();
  ledger::ForEachLive(
      [](const void* object, ledger::Kind kind, Here here, void*) {
        if (kind == ledger::Kind::kSystem && here.file == kFile) live.emplace_back(object, here.line);
      },
      nullptr);
  return live;
}

// ---- What the rows are made from -----------------------------------------------------------------------------------

HDC MemoryDc() {
  static const HDC dc = CreateCompatibleDC(nullptr);
  return dc;
}
HBITMAP Pattern() {
  static const HBITMAP bitmap = CreateBitmap(8, 8, 1, 1, nullptr);
  return bitmap;
}
const BITMAPINFO* Info() {
  static BITMAPINFO info{{sizeof(BITMAPINFOHEADER), 5, 7, 1, 24, BI_RGB, 0, 0, 0, 0, 0}, {}};
  return &info;
}
const void* PackedDib() {  // a header without palette, then 24-bit rows of 8 x 8 pixels
  static struct {
    BITMAPINFOHEADER header;
    uint8_t bits[8 * 24];
  } dib{{sizeof(BITMAPINFOHEADER), 8, 8, 1, 24, BI_RGB, 0, 0, 0, 0, 0}, {}};
  return &dib;
}
const LOGPALETTE* Palette() {
  static const LOGPALETTE palette{0x300, 1, {{1, 2, 3, 0}}};
  return &palette;
}
const std::array<POINT, 7> kPoints{{{0, 0}, {40, 3}, {20, 30}, {50, 50}, {90, 52}, {95, 80}, {52, 88}}};
const std::array<int, 2> kCounts{3, 4};
constexpr RECT kRect{3, 5, 40, 90};
constexpr LOGBRUSH kBrush{BS_HATCHED, RGB(1, 2, 3), HS_CROSS};
constexpr LOGPEN kPen{PS_DOT, {1, 0}, RGB(9, 8, 7)};
constexpr DWORD kDashes[4] = {5, 3, 2, 7};
constexpr BITMAP kBitmap{0, 33, 9, 6, 1, 1, nullptr};
const std::vector<uint8_t>& RegionData() {
  static const std::vector<uint8_t> data = [] {
    const HRGN region = CreateEllipticRgn(0, 0, 30, 20);
    std::vector<uint8_t> bytes(GetRegionData(region, 0, nullptr));
    GetRegionData(region, static_cast<DWORD>(bytes.size()), reinterpret_cast<RGNDATA*>(bytes.data()));
    DeleteObject(region);
    return bytes;
  }();
  return data;
}
const RGNDATA* RegionBytes() { return reinterpret_cast<const RGNDATA*>(RegionData().data()); }
constexpr XFORM kTwice{2, 0, 0, 3, 10, 20};
template <class Font>
const Font* FontDescription() {
  static const Font font = [] {
    Font f{};
    f.lfHeight = -17;
    f.lfWidth = 6;
    f.lfWeight = 700;
    f.lfItalic = 1;
    return f;
  }();
  return &font;
}
void Path() {
  BeginPath(MemoryDc());
  Rectangle(MemoryDc(), 2, 3, 30, 40);
  EndPath(MemoryDc());
}
std::vector<uint8_t> MetafileBits() {
  const HMETAFILE file = CloseMetaFile(CreateMetaFileW(nullptr));
  std::vector<uint8_t> bits(GetMetaFileBitsEx(file, 0, nullptr));
  GetMetaFileBitsEx(file, static_cast<UINT>(bits.size()), bits.data());
  DeleteMetaFile(file);
  return bits;
}
std::vector<uint8_t> EnhMetafileBits() {
  const HENHMETAFILE file = CloseEnhMetaFile(CreateEnhMetaFileW(MemoryDc(), nullptr, nullptr, nullptr));
  std::vector<uint8_t> bits(GetEnhMetaFileBits(file, 0, nullptr));
  GetEnhMetaFileBits(file, static_cast<UINT>(bits.size()), bits.data());
  DeleteEnhMetaFile(file);
  return bits;
}
/// A file in the temporary directory, gone with the object.
class ScratchFile {
 public:
  explicit ScratchFile(const std::vector<uint8_t>& bytes) {
    char directory[MAX_PATH];
    GetTempPathA(MAX_PATH, directory);
    GetTempFileNameA(directory, "trn", 0, name_);
    for (int i = 0; i == 0 || name_[i - 1]; ++i) wide_[i] = static_cast<unsigned char>(name_[i]);
    const HANDLE file = CreateFileA(name_, GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
    DWORD written;
    WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr);
    CloseHandle(file);
  }
  ~ScratchFile() { DeleteFileA(name_); }
  ScratchFile(const ScratchFile&) = delete;
  ScratchFile& operator=(const ScratchFile&) = delete;
  const char* name() const { return name_; }
  const wchar_t* wide() const { return wide_; }

 private:
  char name_[MAX_PATH];
  wchar_t wide_[MAX_PATH];
};
const ScratchFile& PlainFile() {
  static const ScratchFile file({1, 2, 3, 4, 5});
  return file;
}
const ScratchFile& StoredMetafile() {
  static const ScratchFile file(MetafileBits());
  return file;
}
const ScratchFile& StoredEnhMetafile() {
  static const ScratchFile file(EnhMetafileBits());
  return file;
}
HMETAFILE Metafile() {
  static const HMETAFILE file = CloseMetaFile(CreateMetaFileW(nullptr));
  return file;
}
HENHMETAFILE EnhMetafile() {
  static const HENHMETAFILE file = CloseEnhMetaFile(CreateEnhMetaFileW(MemoryDc(), nullptr, nullptr, nullptr));
  return file;
}
HANDLE Duplicated() {
  static const HANDLE event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  return event;
}
DWORD WINAPI Idle(LPVOID) { return 77; }
INT_PTR CALLBACK Silent(HWND, UINT, WPARAM, LPARAM) { return FALSE; }
constexpr WORD kFindDialog = 1540;  // FINDDLGORD of dlgs.h, a template in comdlg32.dll
HINSTANCE CommonDialogs() {
  static const HINSTANCE module = LoadLibraryA("comdlg32.dll");
  return module;
}
const DLGTEMPLATE* Dialog() {
  alignas(4) static struct {
    DLGTEMPLATE header;
    WORD none[3];  // menu, class, title
  } dialog{{WS_POPUP, 0, 0, 1, 2, 30, 40}, {}};
  return &dialog.header;
}

// ---- Rows ----------------------------------------------------------------------------------------------------------

int CloseIt(void* object, uint32_t line, const wchar_t* file) { return T_WinCloseHandle(object, line, file); }
int DeleteIt(void* object, uint32_t line, const wchar_t* file) { return T_WinDeleteObject(object, line, file); }
int DeleteDcIt(void* object, uint32_t line, const wchar_t* file) {
  return T_WinDeleteDC(static_cast<HDC>(object), line, file);
}
int ReleaseDcIt(void* object, uint32_t line, const wchar_t* file) {
  return T_WinReleaseDC(nullptr, static_cast<HDC>(object), line, file);
}
int DeleteMetafileIt(void* object, uint32_t line, const wchar_t* file) {
  return T_WinDeleteMetaFile(static_cast<HMETAFILE>(object), line, file);
}
int DeleteEnhMetafileIt(void* object, uint32_t line, const wchar_t* file) {
  return T_WinDeleteEnhMetaFile(static_cast<HENHMETAFILE>(object), line, file);
}
int DestroyIt(void* object, uint32_t line, const wchar_t* file) {
  return T_WinDestroyWindow(static_cast<HWND>(object), line, file);
}
/// A recording is ended by closing it, which gives a metafile; both must leave the ledger.
int EndRecording(void* object, uint32_t line, const wchar_t* file) {
  return T_WinDeleteMetaFile(T_WinCloseMetaFile(static_cast<HDC>(object), line, file), line, file);
}
int EndEnhRecording(void* object, uint32_t line, const wchar_t* file) {
  return T_WinDeleteEnhMetaFile(T_WinCloseEnhMetaFile(static_cast<HDC>(object), line, file), line, file);
}

// clang-format off
#define TARN_ANY_ROW(function, release, always, ...)                                                         \
  {#function,                                                                                                \
   [](uint32_t line, const wchar_t* file) -> void* { return T_Win##function(__VA_ARGS__, line, file); },     \
   []() -> void* { return function(__VA_ARGS__); }, release, always}
// clang-format on
#define TARN_ROW(function, release, ...) TARN_ANY_ROW(function, release, true, __VA_ARGS__)
#define TARN_DISPLAY_ROW(function, release, ...) TARN_ANY_ROW(function, release, false, __VA_ARGS__)

const Row kRows[] = {
    TARN_ROW(CreateMutexW, CloseIt, nullptr, FALSE, nullptr),
    TARN_ROW(CreateMutexA, CloseIt, nullptr, FALSE, nullptr),
    TARN_ROW(CreateEventW, CloseIt, nullptr, FALSE, TRUE, nullptr),
    TARN_ROW(CreateEventA, CloseIt, nullptr, TRUE, FALSE, nullptr),
    TARN_ROW(CreateThread, CloseIt, nullptr, 1 << 16, Idle, nullptr, 0, nullptr),
    TARN_ROW(CreateFileMappingW, CloseIt, INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 5000, nullptr),
    TARN_ROW(CreateFileMappingA, CloseIt, INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 5000, nullptr),
    TARN_ROW(CreateFileW, CloseIt, PlainFile().wide(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0,
             nullptr),
    TARN_ROW(CreateFileA, CloseIt, PlainFile().name(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0,
             nullptr),

    TARN_ROW(CreateMetaFileW, EndRecording, nullptr),
    TARN_ROW(CreateMetaFileA, EndRecording, nullptr),
    TARN_ROW(CloseMetaFile, DeleteMetafileIt, CreateMetaFileW(nullptr)),
    TARN_ROW(GetMetaFileW, DeleteMetafileIt, StoredMetafile().wide()),
    TARN_ROW(GetMetaFileA, DeleteMetafileIt, StoredMetafile().name()),
    TARN_ROW(CopyMetaFileW, DeleteMetafileIt, Metafile(), nullptr),
    TARN_ROW(CopyMetaFileA, DeleteMetafileIt, Metafile(), nullptr),
    TARN_ROW(SetMetaFileBitsEx, DeleteMetafileIt, static_cast<UINT>(MetafileBits().size()), MetafileBits().data()),
    TARN_ROW(CreateEnhMetaFileW, EndEnhRecording, MemoryDc(), nullptr, &kRect, L"a\0b\0"),
    TARN_ROW(CreateEnhMetaFileA, EndEnhRecording, MemoryDc(), nullptr, &kRect, "a\0b\0"),
    TARN_ROW(CloseEnhMetaFile, DeleteEnhMetafileIt, CreateEnhMetaFileW(MemoryDc(), nullptr, nullptr, nullptr)),
    TARN_ROW(GetEnhMetaFileW, DeleteEnhMetafileIt, StoredEnhMetafile().wide()),
    TARN_ROW(GetEnhMetaFileA, DeleteEnhMetafileIt, StoredEnhMetafile().name()),
    TARN_ROW(CopyEnhMetaFileW, DeleteEnhMetafileIt, EnhMetafile(), nullptr),
    TARN_ROW(CopyEnhMetaFileA, DeleteEnhMetafileIt, EnhMetafile(), nullptr),
    TARN_ROW(SetEnhMetaFileBits, DeleteEnhMetafileIt, static_cast<UINT>(EnhMetafileBits().size()),
             EnhMetafileBits().data()),

    TARN_DISPLAY_ROW(CreateWindowExW, DestroyIt, 0, L"STATIC", L"one", WS_CHILD, 1, 2, 30, 40, HWND_MESSAGE, nullptr,
                     nullptr, nullptr),
    TARN_DISPLAY_ROW(CreateWindowExA, DestroyIt, 0, "STATIC", "one", WS_CHILD, 1, 2, 30, 40, HWND_MESSAGE, nullptr,
                     nullptr, nullptr),
    TARN_DISPLAY_ROW(CreateDialogParamW, DestroyIt, CommonDialogs(), MAKEINTRESOURCEW(kFindDialog), HWND_MESSAGE,
                     Silent, 5),
    TARN_DISPLAY_ROW(CreateDialogParamA, DestroyIt, CommonDialogs(), MAKEINTRESOURCEA(kFindDialog), HWND_MESSAGE,
                     Silent, 5),
    TARN_DISPLAY_ROW(CreateDialogIndirectParamW, DestroyIt, nullptr, Dialog(), HWND_MESSAGE, Silent, 5),
    TARN_DISPLAY_ROW(CreateDialogIndirectParamA, DestroyIt, nullptr, Dialog(), HWND_MESSAGE, Silent, 5),

    TARN_ROW(PathToRegion, DeleteIt, (Path(), MemoryDc())),
    TARN_ROW(ExtCreateRegion, DeleteIt, &kTwice, static_cast<DWORD>(RegionData().size()), RegionBytes()),
    TARN_ROW(CreateRoundRectRgn, DeleteIt, 3, 5, 40, 90, 8, 20),
    TARN_ROW(CreateRectRgnIndirect, DeleteIt, &kRect),
    TARN_ROW(CreateRectRgn, DeleteIt, 3, 5, 40, 90),
    TARN_ROW(CreatePolyPolygonRgn, DeleteIt, kPoints.data(), kCounts.data(), 2, WINDING),
    TARN_ROW(CreatePolygonRgn, DeleteIt, kPoints.data(), 7, ALTERNATE),
    TARN_ROW(CreateEllipticRgnIndirect, DeleteIt, &kRect),
    TARN_ROW(CreateEllipticRgn, DeleteIt, 3, 5, 40, 90),

    TARN_ROW(CreateFontIndirectW, DeleteIt, FontDescription<LOGFONTW>()),
    TARN_ROW(CreateFontIndirectA, DeleteIt, FontDescription<LOGFONTA>()),
    TARN_ROW(CreateFontW, DeleteIt, 11, 12, 13, 14, 600, 1, 0, 1, 2, 3, 4, 5, 6, L"Arial"),
    TARN_ROW(CreateFontA, DeleteIt, 11, 12, 13, 14, 600, 0, 1, 0, 2, 3, 4, 5, 6, "Arial"),
    TARN_ROW(CreatePalette, DeleteIt, Palette()),
    TARN_ROW(CreateSolidBrush, DeleteIt, RGB(10, 20, 30)),
    TARN_ROW(CreatePatternBrush, DeleteIt, Pattern()),
    TARN_ROW(CreateHatchBrush, DeleteIt, HS_VERTICAL, RGB(10, 20, 30)),
    TARN_ROW(CreateDIBPatternBrushPt, DeleteIt, PackedDib(), DIB_RGB_COLORS),
    TARN_ROW(CreateBrushIndirect, DeleteIt, &kBrush),
    TARN_ROW(ExtCreatePen, DeleteIt, PS_GEOMETRIC | PS_USERSTYLE, 3, &kBrush, 4, kDashes),
    TARN_ROW(CreatePenIndirect, DeleteIt, &kPen),
    TARN_ROW(CreatePen, DeleteIt, PS_DASH, 1, RGB(10, 20, 30)),

    TARN_ROW(LoadImageW, DeleteIt, nullptr, MAKEINTRESOURCEW(32754), IMAGE_BITMAP, 0, 0, 0),
    TARN_ROW(LoadImageA, DeleteIt, nullptr, MAKEINTRESOURCEA(32754), IMAGE_BITMAP, 0, 0, 0),
    TARN_ROW(LoadBitmapW, DeleteIt, nullptr, MAKEINTRESOURCEW(32754)),
    TARN_ROW(LoadBitmapA, DeleteIt, nullptr, MAKEINTRESOURCEA(32754)),
    TARN_ROW(CreateDIBSection, DeleteIt, nullptr, Info(), DIB_RGB_COLORS, nullptr, nullptr, 0),
    TARN_ROW(CreateDIBitmap, DeleteIt, MemoryDc(), &Info()->bmiHeader, 0, nullptr, Info(), DIB_RGB_COLORS),
    TARN_ROW(CreateCompatibleBitmap, DeleteIt, MemoryDc(), 13, 17),
    TARN_ROW(CreateBitmapIndirect, DeleteIt, &kBitmap),
    TARN_ROW(CreateBitmap, DeleteIt, 13, 17, 1, 1, nullptr),

    TARN_DISPLAY_ROW(GetWindowDC, ReleaseDcIt, nullptr),
    TARN_DISPLAY_ROW(GetDCEx, ReleaseDcIt, nullptr, nullptr, DCX_CACHE),
    TARN_DISPLAY_ROW(GetDC, ReleaseDcIt, nullptr),
    TARN_ROW(CreateCompatibleDC, DeleteDcIt, nullptr),
    TARN_DISPLAY_ROW(CreateDCW, DeleteDcIt, L"DISPLAY", nullptr, nullptr, nullptr),
    TARN_DISPLAY_ROW(CreateDCA, DeleteDcIt, "DISPLAY", nullptr, nullptr, nullptr),
};

/// Empty when both objects are alike as far as the system tells.
std::string Difference(void* ours, void* theirs) {
  const DWORD type = GetObjectType(ours);
  if (type != GetObjectType(theirs)) return "types differ";
  switch (type) {
    case OBJ_REGION:
      return EqualRgn(static_cast<HRGN>(ours), static_cast<HRGN>(theirs)) ? "" : "regions differ";
    case OBJ_BITMAP: {
      BITMAP a{}, b{};
      GetObjectW(ours, sizeof a, &a);
      GetObjectW(theirs, sizeof b, &b);
      a.bmBits = b.bmBits = nullptr;
      return std::memcmp(&a, &b, sizeof a) == 0 && a.bmWidth > 0 ? "" : "bitmaps differ";
    }
    case OBJ_BRUSH: {
      LOGBRUSH a{}, b{};
      GetObjectW(ours, sizeof a, &a);
      GetObjectW(theirs, sizeof b, &b);
      if (a.lbStyle == BS_PATTERN || a.lbStyle == BS_DIBPATTERN) a.lbHatch = b.lbHatch = 0;  // private copies
      return std::memcmp(&a, &b, sizeof a) == 0 ? "" : "brushes differ";
    }
    case OBJ_FONT: {
      LOGFONTW a{}, b{};
      GetObjectW(ours, sizeof a, &a);
      GetObjectW(theirs, sizeof b, &b);  // what follows the name's end is anything
      return std::memcmp(&a, &b, offsetof(LOGFONTW, lfFaceName)) == 0 && lstrcmpW(a.lfFaceName, b.lfFaceName) == 0
                 ? ""
                 : "fonts differ";
    }
    case OBJ_PEN:
    case OBJ_EXTPEN:
    case OBJ_PAL: {
      uint8_t a[512] = {}, b[512] = {};
      const int bytes = GetObjectW(ours, sizeof a, a);
      return bytes > 0 && GetObjectW(theirs, sizeof b, b) == bytes && std::memcmp(a, b, sizeof a) == 0 ? "" : "differ";
    }
    default:
      return "";
  }
}

class WinObjects : public testing::Test {
 protected:
  void SetUp() override { ledger::StartRecording(); }
  void TearDown() override {
    fault::Disarm();
    ledger::StopRecording();
  }
};

TEST_F(WinObjects, AreMadeEnteredAndReleased) {
  for (const Row& row : kRows) {
    SCOPED_TRACE(row.name);
    void* const theirs = row.windows();
    if (theirs == nullptr && !row.always) {
      std::printf("this machine cannot make %s\n", row.name);
      continue;
    }
    ASSERT_NE(theirs, nullptr);
    void* const ours = row.make(4711, kFile);
    ASSERT_NE(ours, nullptr);
    ASSERT_NE(ours, INVALID_HANDLE_VALUE);
    ASSERT_EQ(Live().size(), 1u);
    EXPECT_EQ(Live()[0].first, ours);
    EXPECT_EQ(Live()[0].second, 4711u);
    EXPECT_EQ(Difference(ours, theirs), "");
    EXPECT_NE(row.release(ours, 4712, kFile), 0);
    EXPECT_EQ(Live().size(), 0u);
    if (row.release != ReleaseDcIt) {  // those go back to a cache
      EXPECT_EQ(GetObjectType(ours), 0u) << "not released";
    }
    const uint64_t unknown = ledger::Now().unknownRemoves;
    EXPECT_NE(row.release(theirs, 4713, kFile), 0) << "what the ledger does not know is released all the same";
    EXPECT_GT(ledger::Now().unknownRemoves, unknown);
  }
}

TEST_F(WinObjects, RefusedCreationLooksLikeTheSystemsOwn) {
  for (const Row& row : kRows) {
    SCOPED_TRACE(row.name);
    fault::Arm({.first = 1, .last = 1, .points = fault::Mask(fault::Point::kSection)});
    SetLastError(0);
    void* const object = row.make(1, kFile);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NOT_ENOUGH_MEMORY));
    EXPECT_EQ(fault::Answered(), 1u);
    fault::Disarm();
    EXPECT_EQ(object, std::strncmp(row.name, "CreateFile", 10) == 0 && !std::strstr(row.name, "Mapping")
                          ? INVALID_HANDLE_VALUE
                          : nullptr);
    EXPECT_EQ(Live().size(), 0u);
  }
}

TEST_F(WinObjects, LastErrorIsTheSystems) {
  // A name that exists already: both calls succeed and only the last error tells.
  const HANDLE first = T_WinCreateEventW(nullptr, TRUE, FALSE, L"tarn-test-event", 1, kFile);
  SetLastError(0);
  const HANDLE second = T_WinCreateEventW(nullptr, TRUE, FALSE, L"tarn-test-event", 2, kFile);
  EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ALREADY_EXISTS));
  EXPECT_NE(second, nullptr);
  EXPECT_EQ(Live().size(), 2u);
  SetLastError(1234);
  EXPECT_TRUE(T_WinCloseHandle(second, 3, kFile));
  EXPECT_TRUE(T_WinCloseHandle(first, 3, kFile));
  EXPECT_EQ(GetLastError(), 1234u);

  SetLastError(0);
  EXPECT_EQ(
      T_WinCreateFileW(L"C:\\tarn-no-such-directory\\x", GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr, 4, kFile),
      INVALID_HANDLE_VALUE);
  EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_PATH_NOT_FOUND));
  SetLastError(0);
  EXPECT_FALSE(T_WinCloseHandle(reinterpret_cast<HANDLE>(uintptr_t{0xdead00}), 5, kFile));
  EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
  EXPECT_EQ(Live().size(), 0u);
}

TEST_F(WinObjects, DuplicateIsEnteredWhenThereIsOne) {
  const HANDLE process = GetCurrentProcess();
  HANDLE duplicate = nullptr;
  EXPECT_TRUE(
      T_WinDuplicateHandle(process, Duplicated(), process, &duplicate, 0, FALSE, DUPLICATE_SAME_ACCESS, 8, kFile));
  ASSERT_EQ(Live().size(), 1u);
  EXPECT_EQ(Live()[0].first, duplicate);
  SetEvent(duplicate);
  EXPECT_EQ(WaitForSingleObject(Duplicated(), 0), WAIT_OBJECT_0);
  EXPECT_TRUE(T_WinCloseHandle(duplicate, 9, kFile));

  // Nowhere to put it, a source that is none, a refusal.
  T_WinDuplicateHandle(process, Duplicated(), process, nullptr, 0, FALSE, DUPLICATE_SAME_ACCESS, 10, kFile);
  HANDLE untouched = Duplicated();
  EXPECT_FALSE(T_WinDuplicateHandle(process, reinterpret_cast<HANDLE>(uintptr_t{0xdead00}), process, &untouched, 0,
                                    FALSE, DUPLICATE_SAME_ACCESS, 11, kFile));
  fault::Arm({.first = 1, .last = 1, .points = fault::Mask(fault::Point::kSection)});
  EXPECT_FALSE(
      T_WinDuplicateHandle(process, Duplicated(), process, &untouched, 0, FALSE, DUPLICATE_SAME_ACCESS, 12, kFile));
  EXPECT_EQ(Live().size(), 0u);
}

TEST_F(WinObjects, ArgumentsArriveInOrder) {
  const HANDLE automatic = T_WinCreateEventA(nullptr, FALSE, TRUE, nullptr, 1, kFile);
  EXPECT_EQ(WaitForSingleObject(automatic, 0), WAIT_OBJECT_0);
  EXPECT_EQ(WaitForSingleObject(automatic, 0), static_cast<DWORD>(WAIT_TIMEOUT));
  T_WinCloseHandle(automatic, 1, kFile);

  const HANDLE mapping =
      T_WinCreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 70000, nullptr, 2, kFile);
  MEMORY_BASIC_INFORMATION view{};
  void* const mapped = MapViewOfFile(mapping, FILE_MAP_WRITE, 0, 0, 0);
  VirtualQuery(mapped, &view, sizeof view);
  EXPECT_EQ(view.RegionSize, 73728u);  // 70000 in whole pages
  UnmapViewOfFile(mapped);
  T_WinCloseHandle(mapping, 2, kFile);

  DWORD id = 0, code = 0;
  const HANDLE thread = T_WinCreateThread(nullptr, 1 << 16, Idle, nullptr, CREATE_SUSPENDED, &id, 3, kFile);
  EXPECT_EQ(id, GetThreadId(thread));
  EXPECT_EQ(ResumeThread(thread), 1u);
  WaitForSingleObject(thread, INFINITE);
  GetExitCodeThread(thread, &code);
  EXPECT_EQ(code, 77u);
  T_WinCloseHandle(thread, 3, kFile);

  void* bits = nullptr;
  const HANDLE section = CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 4096, nullptr);
  const HBITMAP dib = T_WinCreateDIBSection(nullptr, Info(), DIB_RGB_COLORS, &bits, section, 512, 4, kFile);
  ASSERT_NE(dib, nullptr);
  *static_cast<uint8_t*>(bits) = 99;
  void* const whole = MapViewOfFile(section, FILE_MAP_READ, 0, 0, 0);
  EXPECT_EQ(static_cast<uint8_t*>(whole)[512], 99);
  UnmapViewOfFile(whole);
  T_WinDeleteObject(dib, 4, kFile);
  CloseHandle(section);
  EXPECT_EQ(Live().size(), 0u);
}

}  // namespace
}  // namespace tarn::test

#else

TEST(WinObjects, AreMadeEnteredAndReleased) { GTEST_SKIP() << "these exist on Windows only"; }
TEST(WinObjects, RefusedCreationLooksLikeTheSystemsOwn) { GTEST_SKIP() << "these exist on Windows only"; }
TEST(WinObjects, LastErrorIsTheSystems) { GTEST_SKIP() << "these exist on Windows only"; }
TEST(WinObjects, DuplicateIsEnteredWhenThereIsOne) { GTEST_SKIP() << "these exist on Windows only"; }
TEST(WinObjects, ArgumentsArriveInOrder) { GTEST_SKIP() << "these exist on Windows only"; }

#endif
