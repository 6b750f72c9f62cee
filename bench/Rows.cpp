// Rows through every storage, and what a call costs beside the bytes it moves.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <random>

#include "Bitmaps.h"

namespace bench {
namespace {

/// A bitmap that rows are walked through, and the one row they are moved from and to, which stays in the cache.
struct Walk {
  Walk(int32_t width, int32_t height, int32_t bits, uint32_t type)
      : bitmap(width, height, bits, type), buffer(bitmap.RowBytes()), bytes(bitmap.RowBytes()) {}
  Bitmap bitmap;
  std::vector<uint8_t> buffer;
  std::vector<uint8_t> callersPixels;
  uint64_t bytes;  // moved a call

  void Get() {
    int64_t moved = 0;
    for (uint32_t row = 0; row < bitmap.Rows(); ++row) moved += T_GetBitmapRow(&bitmap, buffer.data(), row, bytes);
    Require(moved == static_cast<int64_t>(bytes * bitmap.Rows()), "T_GetBitmapRow");
  }
  void Put() {
    int64_t moved = 0;
    for (uint32_t row = 0; row < bitmap.Rows(); ++row) moved += T_PutBitmapRow(&bitmap, buffer.data(), row, bytes);
    Require(moved == static_cast<int64_t>(bytes * bitmap.Rows()), "T_PutBitmapRow");
  }
  void CopyOut() {
    const uint8_t* row = bitmap.Data();
    for (uint32_t count = bitmap.Rows(); count-- > 0; row += bitmap.RowBytes()) {
      std::memcpy(buffer.data(), row, bytes);
      benchmark::ClobberMemory();
    }
  }
  void CopyIn() {
    uint8_t* row = bitmap.Data();
    for (uint32_t count = bitmap.Rows(); count-- > 0; row += bitmap.RowBytes()) {
      std::memcpy(row, buffer.data(), bytes);
      benchmark::ClobberMemory();
    }
  }

  /// Different rows everywhere, and a look at whether they all come back.
  void Fill() {
    std::mt19937 random(7);
    for (uint8_t& byte : buffer) byte = static_cast<uint8_t>(random());
    if ((&bitmap)->BitsPerPixel == 1) FillRuns(random);
    const std::vector<uint8_t> first = buffer;
    for (uint32_t row = 0; row < bitmap.Rows(); ++row) {
      Require(T_PutBitmapRow(&bitmap, buffer.data(), row, bytes) == static_cast<int64_t>(bytes), "T_PutBitmapRow");
      std::rotate(buffer.begin(), buffer.begin() + 3, buffer.end());
    }
    std::vector<uint8_t> expected = first;
    for (uint32_t row = 0; row < bitmap.Rows(); ++row) {
      Require(T_GetBitmapRow(&bitmap, buffer.data(), row, bytes) == static_cast<int64_t>(bytes) && buffer == expected,
              "the row that was put");
      std::rotate(expected.begin(), expected.begin() + 3, expected.end());
    }
  }

 private:
  /// Runs of 4 to 44 pixels.
  void FillRuns(std::mt19937& random) {
    std::fill(buffer.begin(), buffer.end(), uint8_t{0});
    bool black = false;
    uint64_t end = 0;
    for (uint64_t pixel = 0; pixel < buffer.size() * 8; ++pixel) {
      if (pixel == end) {
        end += 4 + random() % 41;
        black = !black;
      }
      if (black) buffer[pixel / 8] = static_cast<uint8_t>(buffer[pixel / 8] | 0x80 >> pixel % 8);
    }
  }
};

std::string Kilobytes(uint32_t bytes) { return std::to_string(bytes / 1024) + " KB"; }

/// The picture in one kind of storage; null when the kind cannot be had here.
std::shared_ptr<Walk> MakeWalk(const std::string& kind, uint32_t rowBytes) {
  const auto rows = static_cast<int32_t>(kPictureBytes / rowBytes);
  const auto width = static_cast<int32_t>(rowBytes / 3);
  std::shared_ptr<Walk> walk;
  uint32_t type = 0, tiles = 0, conventional = 0, views = 0;
  if (kind == "conventional") {
    walk = std::make_shared<Walk>(width, rows, 24, TYPE_NOTILED);
    type = TYPE_CONV;
  } else if (kind == "caller memory") {
    walk = std::make_shared<Walk>(width, rows, 24, TYPE_USER);
    walk->callersPixels.resize(kPictureBytes);
    Require(T_SetBitmapDataPointer(&walk->bitmap, walk->callersPixels.data(), kPictureBytes) == SUCCESS,
            "T_SetBitmapDataPointer");
    type = TYPE_CONV;
  } else if (kind == "memory tiles") {
    const TiledThreshold tiled;
    walk = std::make_shared<Walk>(width, rows, 24, TYPE_CONV);
    type = TYPE_TILED;
  } else if (kind == "swap tiles, one view") {
    walk = std::make_shared<Walk>(width, rows, 24, TYPE_TILED);
    type = TYPE_TILED;
  } else if (kind == "disk") {
    walk = std::make_shared<Walk>(width, rows, 24, TYPE_DISK);
    type = TYPE_DISK;
  } else {
    walk = std::make_shared<Walk>(static_cast<int32_t>(rowBytes * 8), rows, 1, TYPE_COMPRESSED);
    type = TYPE_COMPRESSED;
  }
  uint32_t made = 0;
  Require(T_GetBitmapMemoryInfo(&walk->bitmap, &made, nullptr, &tiles, &conventional, &views, nullptr) == SUCCESS &&
              made == type,
          ("storage: " + kind).c_str());
  if (kind == "memory tiles") Require(tiles > 1 && conventional == tiles, "memory tiles");
  if (kind == "swap tiles, one view") Require(tiles > 1 && conventional == 0 && views == 1, "swap tiles");
  walk->Fill();
  return walk;
}

}  // namespace

Group RowGroup(uint32_t rowBytes) {
  constexpr double kMost = 1.15;
  Group group{"rows-" + std::to_string(rowBytes / 1024),
              "Rows of " + Kilobytes(rowBytes) + ", a walk through 48 MB; x memcpy: beside a memcpy of the row",
              {"GB/s", "ns a row", "x memcpy"},
              {},
              {}};
  const double perRow = 1e9 / static_cast<double>(kPictureBytes / rowBytes);
  constexpr double kGigabytes = static_cast<double>(kPictureBytes) / 1e9;
  size_t copyOut = 0;  // of the storage in one piece that came last
  size_t copyIn = 0;
  for (const char* kind :
       {"caller memory", "conventional", "memory tiles", "swap tiles, one view", "disk", "compressed (1 bit)"}) {
    const auto walk = MakeWalk(kind, rowBytes);
    if (walk->bitmap.InOneBlock()) {
      copyOut = group.Add("copy out", [walk] { walk->CopyOut(); });
      copyIn = group.Add("copy in", [walk] { walk->CopyIn(); });
      const std::string who = std::string("memcpy, ") + kind;
      group.lines.push_back({"get", who, {Rate(copyOut, kGigabytes), Scaled(copyOut, perRow), {}}});
      group.lines.push_back({"put", who, {Rate(copyIn, kGigabytes), Scaled(copyIn, perRow), {}}});
    }
    const size_t get = group.Add("get", [walk] { walk->Get(); });
    const size_t put = group.Add("put", [walk] { walk->Put(); });
    const Target target = std::string(kind) == "conventional" ? AtMost(kMost) : Target{};
    group.lines.push_back({"get", kind, {Rate(get, kGigabytes), Scaled(get, perRow), Ratio(get, copyOut, target)}});
    group.lines.push_back({"put", kind, {Rate(put, kGigabytes), Scaled(put, perRow), Ratio(put, copyIn, target)}});
  }
  return group;
}

Group CallGroup() {
  constexpr double kMost = 15;
  constexpr int kWalks = 64;
  Group group{"calls", "Calls that move a few bytes, rows in cache", {"ns a call", "ns beyond memcpy"}, {}, {}};
  constexpr int32_t kSide = 64;
  constexpr double kPerCall = 1e9 / (kSide * kWalks);
  const auto add = [&](const char* name, const auto& walk, void (Walk::*pass)()) {
    return group.Add(name, [walk, pass] {
      for (int i = 0; i < kWalks; ++i) ((*walk).*pass)();
    });
  };
  for (const uint64_t bytes : {1, 4, 8, 16}) {
    const auto walk = std::make_shared<Walk>(kSide, kSide, 8, TYPE_CONV);
    walk->Fill();
    walk->bytes = bytes;
    const size_t copyOut = add("copy out", walk, &Walk::CopyOut);
    const size_t copyIn = add("copy in", walk, &Walk::CopyIn);
    const size_t get = add("get", walk, &Walk::Get);
    const size_t put = add("put", walk, &Walk::Put);
    const std::string moved = std::to_string(bytes) + (bytes == 1 ? " byte" : " bytes");
    group.lines.push_back({"get " + moved, "memcpy", {Scaled(copyOut, kPerCall), {}}});
    group.lines.push_back(
        {"get " + moved, "T_GetBitmapRow", {Scaled(get, kPerCall), Difference(get, copyOut, kPerCall, AtMost(kMost))}});
    group.lines.push_back({"put " + moved, "memcpy", {Scaled(copyIn, kPerCall), {}}});
    group.lines.push_back(
        {"put " + moved, "T_PutBitmapRow", {Scaled(put, kPerCall), Difference(put, copyIn, kPerCall, AtMost(kMost))}});
  }
  return group;
}

}  // namespace bench
