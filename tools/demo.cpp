// Takes pictures through every kind of storage and back, compares every byte, and reports: a table on the terminal and
// a page for the browser.

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>

#include "Console.h"
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
  uint32_t type;      // to ask for
  uint32_t reported;  // by T_GetBitmapMemoryInfo
  bool oneBitOnly;
  void (Stored::*make)(const Picture&, const std::string&);  // null: Create with the type
};

constexpr Kind kKinds[] = {
    {"memory", TYPE_NOTILED, TYPE_CONV, false, nullptr},
    {"caller memory", TYPE_USER, TYPE_CONV, false, &Stored::CreateInCallerMemory},
    {"movable block", TYPE_USER, TYPE_CONV, false, &Stored::CreateInMovableBlock},
    {"tiled", TYPE_TILED, TYPE_TILED, false, nullptr},
    {"disk", TYPE_DISK, TYPE_DISK, false, nullptr},
    {"compressed", TYPE_COMPRESSED, TYPE_COMPRESSED, true, nullptr},
};

struct Held {
  uint64_t memory = 0;
  uint64_t disk = 0;
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
  return {handle.Size, 0};
}

// ---- Measuring -----------------------------------------------------------------------------------------------------

struct Result {
  const Kind* kind;
  Held held;
  double writeRate = 0;  // millions of bytes a second
  double readRate = 0;
  bool same = false;
};

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

Result Through(const Kind& kind, const Picture& picture, const std::vector<uint8_t>& pixels, const std::string& name) {
  Result result;
  result.kind = &kind;
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

struct Shown {
  std::string title;
  std::string image;  // file beside the page
  Picture picture;
  uint64_t bytes = 0;
  std::vector<Result> results;
};

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
    if (!kind.oneBitOnly || picture.bits == 1) shown.results.push_back(Through(kind, picture, pixels, file));
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

std::string Grouped(uint64_t number) {
  std::string text = std::to_string(number);
  for (int at = static_cast<int>(text.size()) - 3; at > 0; at -= 3) text.insert(static_cast<size_t>(at), ",");
  return text;
}

std::string Rate(double rate) { return Grouped(static_cast<uint64_t>(rate + 0.5)); }

void PrintTable(const std::vector<Shown>& all) {
  std::printf("%-18s %-14s %14s %14s %12s %12s  %s\n", "picture", "storage", "in memory", "on disk", "write MB/s",
              "read MB/s", "same");
  for (const Shown& shown : all) {
    std::string title = shown.title;
    for (const Result& result : shown.results) {
      std::printf("%-18s %-14s %14s %14s %12s %12s  %s\n", title.c_str(), result.kind->name,
                  Grouped(result.held.memory).c_str(), Grouped(result.held.disk).c_str(),
                  Rate(result.writeRate).c_str(), Rate(result.readRate).c_str(), result.same ? "yes" : "no");
      title.clear();
    }
  }
}

std::string Escaped(const std::string& text) {
  std::string out;
  for (const char c : text) {
    switch (c) {
      case '&':
        out += "&amp;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      case '"':
        out += "&quot;";
        break;
      default:
        out += c;
    }
  }
  return out;
}

constexpr char kStyle[] = R"(
:root { color-scheme: light dark; --ink: #1d2329; --soft: #5c6670; --line: #dfe3e8; --paper: #ffffff; --back: #f4f5f7;
        --good: #1a7f4b; --bad: #c62f2f; --bar: #d5e6f5; }
@media (prefers-color-scheme: dark) {
  :root { --ink: #e4e8ec; --soft: #98a3ae; --line: #2d343b; --paper: #1a1f24; --back: #12161a; --good: #4ecb8d;
          --bad: #ff7a70; --bar: #213a50; }
}
* { box-sizing: border-box; }
body { margin: 0; background: var(--back); color: var(--ink); font: 16px/1.5 system-ui, sans-serif; }
main { max-width: 1080px; margin: 0 auto; padding: 40px 20px 60px; }
h1 { margin: 0 0 8px; font-size: 30px; line-height: 1.2; }
h2 { margin: 0; font-size: 20px; }
p { margin: 0 0 12px; max-width: 68ch; }
.soft, .soft a { color: var(--soft); }
.verdict { font-weight: 600; color: var(--good); }
.verdict.bad, td.no { color: var(--bad); }
article { display: grid; grid-template-columns: 280px minmax(0, 1fr); gap: 24px; margin-top: 24px; padding: 24px;
          background: var(--paper); border: 1px solid var(--line); border-radius: 10px; }
figure { margin: 0; }
figure img { display: block; max-width: 100%; max-height: 360px; margin: 0 auto; border: 1px solid var(--line); }
figure a { display: block; }
.table { overflow-x: auto; margin-top: 12px; }
table { width: 100%; border-collapse: collapse; font-variant-numeric: tabular-nums; font-size: 15px; }
th { font-weight: 500; color: var(--soft); font-size: 13px; }
th, td { padding: 6px 10px; text-align: right; white-space: nowrap; border-bottom: 1px solid var(--line); }
th:first-child, td:first-child { text-align: left; padding-left: 0; }
tr:last-child td { border-bottom: 0; }
td.rate { background: linear-gradient(var(--bar), var(--bar)) no-repeat right center / var(--part) 70%; }
td.yes { color: var(--good); }
h1 + p { margin-top: 12px; }
article + h1, .gallery + h1 { margin-top: 56px; }
.gallery + h2, p + h2 { margin-top: 32px; }
.gallery { display: grid; grid-template-columns: repeat(auto-fill, minmax(230px, 1fr)); gap: 24px; margin-top: 24px; }
.gallery img { width: 100%; }
figcaption { margin-top: 6px; font-size: 13px; }
code { font-size: 12px; overflow-wrap: anywhere; }
@media (max-width: 760px) { article { grid-template-columns: minmax(0, 1fr); padding: 16px; } }
)";

/// Bars grow with the logarithm: disk and memory are a factor of a hundred apart.
std::string RateCell(double rate, double most) {
  const double part = most <= 1 ? 0 : std::clamp(std::log10(std::max(rate, 1.0)) / std::log10(most), 0.0, 1.0);
  return "<td class=\"rate\" style=\"--part:" + std::to_string(static_cast<int>(part * 100)) + "%\">" + Rate(rate) +
         "</td>";
}

std::string Card(const Shown& shown, double most) {
  const Picture& picture = shown.picture;
  std::string html = "<article>\n<figure><a href=\"" + Escaped(shown.image) + "\"><img src=\"" + Escaped(shown.image) +
                     "\" alt=\"" + Escaped(shown.title) + "\"></a></figure>\n<div>\n<h2>" + Escaped(shown.title) +
                     "</h2>\n<div class=\"soft\">" + std::to_string(picture.width) + " &times; " +
                     std::to_string(picture.height) + ", " + Escaped(DepthName(picture)) + ", " + Grouped(shown.bytes) +
                     " bytes of pixels; from " + Escaped(picture.container) + "</div>\n<div class=\"table\"><table>\n" +
                     "<tr><th>storage</th><th>bytes in memory</th><th>bytes on disk</th><th>write MB/s</th>"
                     "<th>read MB/s</th><th>same</th></tr>\n";
  for (const Result& result : shown.results) {
    html += "<tr><td>" + std::string(result.kind->name) + "</td><td>" + Grouped(result.held.memory) + "</td><td>" +
            Grouped(result.held.disk) + "</td>" + RateCell(result.writeRate, most) + RateCell(result.readRate, most) +
            (result.same ? "<td class=\"yes\">yes</td>" : "<td class=\"no\">no</td>") + "</tr>\n";
  }
  return html + "</table></div>\n</div>\n</article>\n";
}

// ---- One photograph in every depth, and in few colours --------------------------------------------------------------

struct Made {
  std::string image;     // file beside the page
  std::string command;   // that made it
  std::string distance;  // decibels, "inf", or empty where there is none to tell
  std::string holds;     // what the file holds
  uint64_t bytes = 0;    // of the file
};
struct Group {
  std::string heading;
  std::vector<Made> made;
};

/// Lines of an image, its command and its distance, with tabs between; lines without tabs are headings.
std::vector<Group> ReadGroups(const std::string& list, const std::filesystem::path& directory) {
  std::vector<Group> groups;
  std::ifstream in(list);
  for (std::string line; std::getline(in, line);) {
    const size_t first = line.find('\t'), last = line.rfind('\t');
    if (first == std::string::npos || groups.empty()) groups.emplace_back();
    if (first == std::string::npos) {
      groups.back().heading = line;
      continue;
    }
    Made made{line.substr(0, first), line.substr(first + 1, last - first - 1), line.substr(last + 1), "", 0};
    Console console(false, true);
    InputFile file(directory / made.image);
    made.bytes = file.Size();
    made.holds = OpenPicture(file, console, 0)->Info().depth;
    groups.back().made.push_back(made);
  }
  return groups;
}

/// @param text HTML
std::string GallerySection(const std::string& title, const std::string& text, const std::vector<Group>& groups) {
  if (groups.empty()) return "";
  std::string html = "<h1>" + title + "</h1>\n<p>" + text + "</p>\n";
  for (const Group& group : groups) {
    if (!group.heading.empty()) html += "<h2>" + Escaped(group.heading) + "</h2>\n";
    html += "<div class=\"gallery\">\n";
    for (const Made& made : group.made) {
      html += "<figure><a href=\"" + Escaped(made.image) + "\"><img loading=\"lazy\" src=\"" + Escaped(made.image) +
              "\" alt=\"" + Escaped(made.command) + "\"></a><figcaption><code>" + Escaped(made.command) +
              "</code><div class=\"soft\">" + Escaped(made.holds) + ", " + Grouped(made.bytes) + " bytes" +
              (made.distance.empty()    ? ""
               : made.distance == "inf" ? "; no difference"
                                        : "; " + Escaped(made.distance) + " dB") +
              "</div></figcaption></figure>\n";
    }
    html += "</div>\n";
  }
  return html;
}

constexpr char kDepthsText[] =
    "Each picture was made from the same photograph by the command below it, with the nearest colours and without "
    "dithering. Depths that no file format has are shown in the next one that holds the same pixels. The decibels are "
    "the distance from the photograph as <code>tarn diff</code> measures it.";
constexpr char kColorsText[] =
    "The same photograph dithered, and with palettes of several origins. Dithering moves single pixels away from the "
    "photograph to bring areas near: the decibels, taken pixel by pixel, fall where the eye sees a gain. Open a "
    "picture to see its pixels as they are.";

constexpr char kMovedText[] =
    "The photograph and a part of the page in other sizes, turned, slanted, trimmed and with other opacity, each by "
    "the "
    "command below it. White around a turned picture is the colour that <code>--fill</code> did not change; where "
    "there "
    "is opacity, the page shows through.";

std::string Page(const std::vector<Shown>& all, const std::string& galleries, const std::string& origin, size_t trips,
                 size_t wrong) {
  double most = 1;
  for (const Shown& shown : all) {
    for (const Result& result : shown.results) most = std::max({most, result.writeRate, result.readRate});
  }
  std::string html =
      "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
      "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n<title>Tarn: pictures through "
      "storage</title>\n<style>" +
      std::string(kStyle) + "</style>\n</head>\n<body>\n<main>\n<h1>Pictures through every storage</h1>\n" +
      "<p>Each picture was decoded, written row by row into every kind of storage that can hold it, read back, and "
      "compared byte for byte. The pictures below were encoded again from tiles (" +
      Grouped(kTileBytes) + " bytes each), the page from compressed rows.</p>\n<p class=\"verdict" +
      (wrong ? " bad\">" : "\">") + std::to_string(trips - wrong) + " of " + std::to_string(trips) +
      " round trips gave the same bytes.</p>\n<p class=\"soft\">" + Escaped(origin) +
      " Rates are the best of several passes on this machine, bars are logarithmic; files go through the system's "
      "cache.</p>\n";
  for (const Shown& shown : all) html += Card(shown, most);
  return html + galleries + "</main>\n</body>\n</html>\n";
}

void WriteText(const std::filesystem::path& name, const std::string& text) {
  OutputFile output(name);
  output.Write(text.data(), text.size());
  output.Commit();
}

int Run(int argc, char** argv) {
  CommandLine line("tarn_demo", "Takes pictures through every kind of storage and back.");
  Options options = line.All();
  std::string directory, origin, depths, colors, moved;
  std::vector<std::string> files;
  options.Argument("directory", directory, "DIRECTORY", "where the page goes");
  options.Arguments("files", files, "FILE...", "PNG, JPEG, TIFF or BMP files");
  options.Text("--origin", origin, "TEXT", "a sentence about where the pictures come from");
  options.Text("--depths", depths, "FILE", "list of images of one photograph: image, command and distance a line");
  options.Text("--colors", colors, "FILE", "the same of images in few colours; headings are lines without tabs");
  options.Text("--moved", moved, "FILE", "the same of images whose pixels moved, without distances");
  if (!line.Read(argc, argv)) return 0;
  InstallSignalCleanup();

  std::vector<Shown> all;
  size_t trips = 0, wrong = 0;
  for (const std::string& file : files) {
    all.push_back(Show(file, directory));
    for (const Result& result : all.back().results) {
      ++trips;
      if (!result.same) ++wrong;
    }
  }
  PrintTable(all);
  std::printf("%zu of %zu round trips gave the same bytes\n", trips - wrong, trips);
  const std::filesystem::path page = std::filesystem::absolute(directory) / "index.html";
  const std::string galleries =
      GallerySection("One photograph in every depth", kDepthsText, ReadGroups(depths, directory)) +
      GallerySection("One photograph in few colours", kColorsText, ReadGroups(colors, directory)) +
      GallerySection("Pixels on the move", kMovedText, ReadGroups(moved, directory));
  WriteText(page, Page(all, galleries, origin, trips, wrong));
  std::printf("%s\n", page.c_str());
  return wrong == 0 ? 0 : 1;
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
