// Takes pictures through every kind of storage and back, compares every byte, and reports: a table on the terminal and
// a page for the browser.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <filesystem>

#include "Console.h"
#include "DemoPage.h"
#include "Failure.h"
#include "Files.h"
#include "Options.h"
#include "Picture.h"

namespace tarn::tool {
namespace {

constexpr int64_t kTileBytes = 64 * 1024;
constexpr auto kMeasured = std::chrono::milliseconds(60);  // each direction; the best of all passes counts

// ---- Storage kinds -------------------------------------------------------------------------------------------------

void Require(int64_t status, const std::string& name, const char* doing) {
  if (status == SUCCESS) return;
  throw Failure(Exit::kInternal, name, std::string(doing) + ": the library answers " + std::to_string(status));
}

/// A bitmap in one kind of storage, made and freed by the library's own calls.
class Stored {
 public:
  Stored() = default;
  Stored(const Stored&) = delete;
  Stored& operator=(const Stored&) = delete;
  ~Stored() {
    if (block_ != 0) {
      T_UnlockBitmap(&handle, locked_);
      T_FreeBitmap(&handle);
      T_OsFreeHandle(block_, __LINE__, L"tools/demo.cpp");
    } else {
      T_FreeBitmap(&handle);
    }
  }

  void Create(const Picture& picture, uint32_t type, const std::string& name) {
    Require(T_SetMemoryThresholds(0, 0, kTileBytes, 0, 0, T_THRESHOLD_TILE_SIZE), name, "tile size");
    Require(T_CreateBitmap(&handle, sizeof handle, type, picture.width, picture.height, picture.bits, picture.Order(),
                           picture.palette.empty() ? nullptr : picture.palette.data(), picture.orientation, nullptr, 0),
            name, "creating a bitmap");
  }
  /// Memory of ours: the library is told where it lies.
  void CreateInCallerMemory(const Picture& picture, const std::string& name) {
    Create(picture, TYPE_USER, name);
    memory_.resize(handle.Size);
    Require(T_SetBitmapDataPointer(&handle, memory_.data(), memory_.size()), name, "caller memory");
  }
  /// A block that may move while nobody has it locked.
  void CreateInMovableBlock(const Picture& picture, const std::string& name) {
    Create(picture, TYPE_USER, name);
    block_ = T_OsAllocHandle(T_BLOCK_MOVABLE | T_BLOCK_ZERO, handle.Size, __LINE__, L"tools/demo.cpp");
    if (block_ == 0) throw Failure(Exit::kMemory, name, "no movable block");
    handle.MemoryHandle = block_;
    handle.Flags |= T_FLAG_HANDLE_DATA;
    locked_ = T_LockBitmap(&handle);
  }

  BitmapHandle handle{};

 private:
  std::vector<uint8_t> memory_;
  uint64_t block_ = 0;
  int32_t locked_ = 0;
};

struct Kind {
  const char* name;
  uint32_t type;                                             // to ask for
  uint32_t reported;                                         // by T_GetBitmapMemoryInfo
  bool (*holds)(int32_t bits);                               // null: pictures of all depths
  void (Stored::*make)(const Picture&, const std::string&);  // null: Create with the type
};

constexpr Kind kKinds[] = {
    {"memory", TYPE_NOTILED, TYPE_CONV, nullptr, nullptr},
    {"caller memory", TYPE_USER, TYPE_CONV, nullptr, &Stored::CreateInCallerMemory},
    {"movable block", TYPE_USER, TYPE_CONV, nullptr, &Stored::CreateInMovableBlock},
    {"tiled", TYPE_TILED, TYPE_TILED, nullptr, nullptr},
    {"disk", TYPE_DISK, TYPE_DISK, nullptr, nullptr},
    {"compressed", TYPE_COMPRESSED, TYPE_COMPRESSED, [](int32_t bits) { return bits == 1; }, nullptr},
    {"super-compressed", TYPE_SUPERCOMPRESSED, TYPE_SUPERCOMPRESSED, SuperCompressible, nullptr},
};

Held BytesHeld(BitmapHandle& handle, const std::string& name) {
  uint32_t type = 0, memoryTiles = 0, mapped = 0;
  int64_t tileBytes = 0;
  Require(T_GetBitmapMemoryInfo(&handle, &type, &tileBytes, nullptr, &memoryTiles, nullptr, &mapped), name, "storage");
  const uint64_t size = handle.Size;
  const auto tile = static_cast<uint64_t>(tileBytes);
  if (type == TYPE_TILED) return {(memoryTiles + mapped) * tile, size - std::min(size, memoryTiles * tile)};
  if (type == TYPE_DISK) return {0, size};
  if (type == TYPE_COMPRESSED) Require(T_TrimBitmapHeap(&handle), name, "trimming");
  if (type == TYPE_SUPERCOMPRESSED) Require(T_CompactBitmap(&handle), name, "compacting");
  return {handle.Size, 0};
}

// ---- Measuring -----------------------------------------------------------------------------------------------------

/// Runs a pass over all rows until the time is up; gives the best rate.
template <class Pass>
double BestRate(uint64_t bytes, const Pass& pass) {
  using Clock = std::chrono::steady_clock;
  const auto end = Clock::now() + kMeasured;
  double best = 0;
  do {
    const auto started = Clock::now();
    pass();
    const double seconds = std::chrono::duration<double>(Clock::now() - started).count();
    best = std::max(best, static_cast<double>(bytes) / std::max(seconds, 1e-9) / 1e6);
  } while (Clock::now() < end);
  return best;
}

Trip Through(const Kind& kind, const Picture& picture, const std::vector<uint8_t>& pixels, const std::string& name) {
  Trip result;
  result.kind = kind.name;
  result.type = kind.type;
  Stored stored;
  if (kind.make) {
    (stored.*kind.make)(picture, name);
  } else {
    stored.Create(picture, kind.type, name);
  }
  BitmapHandle& handle = stored.handle;
  const uint64_t rowBytes = handle.BytesPerLine;
  const auto rows = static_cast<uint32_t>(picture.height);
  std::vector<uint8_t> back(pixels.size(), 0xA5);

  result.writeRate = BestRate(pixels.size(), [&] {
    for (uint32_t row = 0; row < rows; ++row) {
      if (T_PutBitmapRow(&handle, pixels.data() + row * rowBytes, row, rowBytes) != static_cast<int64_t>(rowBytes)) {
        throw Failure(Exit::kInternal, name, std::string(kind.name) + ": row " + std::to_string(row) + " not stored");
      }
    }
  });
  result.held = BytesHeld(handle, name);
  result.readRate = BestRate(pixels.size(), [&] {
    for (uint32_t row = 0; row < rows; ++row) {
      if (T_GetBitmapRow(&handle, back.data() + row * rowBytes, row, rowBytes) != static_cast<int64_t>(rowBytes)) {
        throw Failure(Exit::kInternal, name, std::string(kind.name) + ": row " + std::to_string(row) + " not fetched");
      }
    }
  });
  uint32_t reported = 0;
  Require(T_GetBitmapMemoryInfo(&handle, &reported, nullptr, nullptr, nullptr, nullptr, nullptr), name, "storage");
  if (reported != kind.reported) {
    throw Failure(Exit::kInternal, name,
                  std::string(kind.name) + " was asked for, " + std::to_string(reported) + " was made");
  }
  result.same = back == pixels;
  return result;
}

/// Decodes a file, takes it through all kinds of storage, and writes a PNG of what came back from the last.
Shown Show(const std::string& file, const std::filesystem::path& directory) {
  Console console(false, true);
  InputFile input(file);
  const std::unique_ptr<Reader> reader = OpenPicture(input, console, 0);
  Shown shown;
  shown.title = std::filesystem::path(file).stem();
  shown.picture = reader->Info();
  Picture& picture = shown.picture;

  Bitmap decoded(picture, {StorageKind::kMemory, 0, 0}, file);
  Progress none(console, file, 1);
  reader->ReadInto(decoded, none);
  const uint64_t rowBytes = decoded.BytesPerLine();
  std::vector<uint8_t> pixels(rowBytes * static_cast<uint64_t>(picture.height));
  for (int32_t row = 0; row < picture.height; ++row) decoded.GetRow(row, pixels.data() + row * rowBytes);
  shown.bytes = pixels.size();
  for (const Kind& kind : kKinds) {
    if (!kind.holds || kind.holds(picture.bits)) shown.trips.push_back(Through(kind, picture, pixels, file));
  }

  // The picture on the page has been through tiles, or runs, itself.
  Bitmap last(picture, {picture.bits == 1 ? StorageKind::kCompressed : StorageKind::kTiled, kTileBytes, 0}, file);
  for (int32_t row = 0; row < picture.height; ++row) last.PutRow(row, pixels.data() + row * rowBytes);
  shown.image = shown.title + ".png";
  OutputFile output(directory / shown.image);
  WritePicture(Format::kPng, {}, picture, last, output, console, none);
  output.Commit();
  return shown;
}

// ---- Reporting -----------------------------------------------------------------------------------------------------

std::string Rate(double rate) { return Grouped(static_cast<uint64_t>(rate + 0.5)); }

void PrintTable(const std::vector<Shown>& all) {
  std::printf("%-18s %-16s %14s %14s %12s %12s  %s\n", "picture", "storage", "in memory", "on disk", "write MB/s",
              "read MB/s", "same");
  for (const Shown& shown : all) {
    std::string title = shown.title;
    for (const Trip& result : shown.trips) {
      std::printf("%-18s %-16s %14s %14s %12s %12s  %s\n", title.c_str(), result.kind.c_str(),
                  Grouped(result.held.memory).c_str(), Grouped(result.held.disk).c_str(),
                  Rate(result.writeRate).c_str(), Rate(result.readRate).c_str(), result.same ? "yes" : "no");
      title.clear();
    }
  }
}

void WriteText(const std::filesystem::path& name, const std::string& text) {
  OutputFile output(name);
  output.Write(text.data(), text.size());
  output.Commit();
}

int Run(int argc, char** argv) {
  CommandLine line("tarn_demo", "Takes pictures through every kind of storage and back, and shows what the tool made.");
  Options options = line.All();
  std::string directory, list;
  Summary summary;
  int since = 0;
  std::vector<std::string> files;
  options.Argument("directory", directory, "DIRECTORY", "where the page goes");
  options.Arguments("files", files, "FILE...", "PNG, JPEG, TIFF or BMP files");
  options.Text("--origin", summary.origin, "TEXT", "a sentence about where the pictures come from");
  options.Text("--list", list, "FILE", "list of the pictures that the tool made");
  options.Number("--since", since, 0, 2147483647, "seconds since 1970 at which all began");
  if (!line.Read(argc, argv)) return 0;
  InstallSignalCleanup();

  std::vector<Shown> all;
  for (const std::string& file : files) {
    all.push_back(Show(file, directory));
    for (const Trip& trip : all.back().trips) {
      ++summary.trips;
      if (trip.same) ++summary.tripsSame;
    }
  }
  PrintTable(all);
  std::printf("%zu of %zu round trips gave the same bytes\n", summary.tripsSame, summary.trips);

  const std::vector<Section> sections = list.empty() ? std::vector<Section>() : ReadSections(list, directory);
  for (const Section& section : sections) {
    for (const Entry& entry : section.entries) {
      if (entry.kind == Entry::Kind::kPicture) ++summary.made;
      if (!entry.compared) continue;
      ++summary.compared;
      if (entry.same) ++summary.comparedSame;
    }
  }
  if (!sections.empty()) {
    std::printf("%zu pictures made; %zu of %zu that were changed and restored are as before\n", summary.made,
                summary.comparedSame, summary.compared);
  }
  T_Version version{};
  version.StructSize = sizeof version;
  Require(T_VersionInfo(&version, sizeof version), "", "version");
  summary.version = std::to_string(version.MajorNumber) + "." + std::to_string(version.MinorNumber);
  if (since != 0) summary.seconds = std::max<int64_t>(1, static_cast<int64_t>(std::time(nullptr)) - since);
  const std::filesystem::path page = std::filesystem::absolute(directory) / "index.html";
  WriteText(page, DemoPage(all, sections, summary));
  std::printf("%s\n", page.c_str());
  return summary.tripsSame == summary.trips && summary.comparedSame == summary.compared ? 0 : 1;
}

}  // namespace
}  // namespace tarn::tool

int main(int argc, char** argv) {
  try {
    return tarn::tool::Run(argc, argv);
  } catch (const tarn::tool::Failure& failure) {
    std::fprintf(stderr, "tarn_demo: %s: %s\n", failure.File().c_str(), failure.what());
    return static_cast<int>(failure.ExitCode());
  } catch (const std::exception& error) {
    std::fprintf(stderr, "tarn_demo: %s\n", error.what());
    return static_cast<int>(tarn::tool::Exit::kInternal);
  }
}
