// Two bitmaps combined, and one mapped onto a quadrilateral of another; scrambling.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstring>
#include <memory>

#include "Bitmaps.h"
#include "Peers.h"

namespace bench {
namespace {

constexpr int32_t kRowBytes = 12 << 10;
constexpr int32_t kRows = static_cast<int32_t>(kPictureBytes / kRowBytes);

struct Job {
  const char* name;
  int32_t bits;
  int32_t column;  // of the target
  int32_t from;    // of the source
  uint32_t flags;
  double most;  // x mc of the bytes that are read and written
};

constexpr Job kJobs[] = {
    {"copy, 24 bits", 24, 0, 0, T_COMBINE_COPY, 1.2},
    {"copy, 24 bits, from column 5", 24, 5, 0, T_COMBINE_COPY, 1.2},
    {"copy, 1 bit, from column 13", 1, 13, 0, T_COMBINE_COPY, 2.0},
    {"copy, 1 bit, from column 5 to 13", 1, 13, 5, T_COMBINE_COPY, 1.2},
    {"copy, 4 bits, from column 1 to 2", 4, 2, 1, T_COMBINE_COPY, 1.2},
    {"xor, 24 bits", 24, 0, 0, T_COMBINE_XOR, 0},
    {"xor, 1 bit, from column 13", 1, 13, 0, T_COMBINE_XOR, 0},
    {"add, 24 bits", 24, 0, 0, T_COMBINE_ADD, 0},
    {"average, 24 bits", 24, 0, 0, T_COMBINE_AVERAGE, 0},
    {"multiply, 24 bits", 24, 0, 0, T_COMBINE_MULTIPLY, 0},
    {"multiply, 48 bits", 48, 0, 0, T_COMBINE_MULTIPLY, 0},
    {"alpha, 32 bits", 32, 0, 0, T_COMBINE_ALPHA, 0},
};

std::shared_ptr<Bitmap> Filled(int32_t bits, uint32_t seed) {
  auto bitmap = std::make_shared<Bitmap>(kRowBytes * 8 / bits, kRows, bits, TYPE_NOTILED);
  uint8_t* const bytes = bitmap->Data();
  for (uint64_t i = 0; i < kPictureBytes; ++i)
    bytes[i] = static_cast<uint8_t>((seed = seed * 1664525u + 1013904223u) >> 24);
  return bitmap;
}

Pixels PixelsOf(const Bitmap& bitmap, int32_t bits) {
  Pixels pixels({bits, T_ORDER_BGR}, kRowBytes * 8 / bits, kRows);
  std::memcpy(pixels.bytes.data(), bitmap.Data(), kPictureBytes);
  return pixels;
}

}  // namespace

Group CombineGroup() {
  Group group{"combine", "Two bitmaps of 48 MB combined", {"ms", "x mc"}, {}, {}};
  const size_t yardstick = AddMemcpy(group);
  const auto all = static_cast<double>(kPictureBytes);
  for (const Job& job : kJobs) {
    const auto target = Filled(job.bits, 3), source = Filled(job.bits, 5);
    const int32_t width = kRowBytes * 8 / job.bits - std::max(job.column, job.from);
    const Pixels before = PixelsOf(*target, job.bits), other = PixelsOf(*source, job.bits);
    const auto pass = [=, &job] {
      Require(T_CombineBitmapKrn(&*target, job.column, 0, &*source, job.from, 0, width, kRows, job.flags) == SUCCESS,
              "T_CombineBitmapKrn");
    };
    const size_t at = group.Add("ours", pass);
    const double read = job.flags == T_COMBINE_COPY ? all : 2 * all;
    const auto add = [&](const std::string& who, size_t number, Target most) {
      group.lines.push_back({job.name, who, {Scaled(number, 1e3), TimesMemcpy(number, yardstick, read, all, most)}});
    };
    add("T_CombineBitmapKrn", at, job.most > 0 ? AtMost(job.most) : Target{});
    if (job.column != 0 || job.from != 0) continue;
    for (const auto& peer : Peers()) {
      const PeerJob way = peer->Combine(before, other, job.flags);
      if (way.pass) add(peer->Name() + " " + way.call, group.Add("peer", way.pass), {});
    }
  }
  const auto target = Filled(24, 3), source = Filled(24, 5);
  const int32_t width = kRowBytes / 3;
  const Pixels before = PixelsOf(*target, 24), other = PixelsOf(*source, 24);
  const int32_t corners[4][2] = {{0, 0}, {width - 300, 500}, {width, kRows - 200}, {700, kRows}};
  for (const uint32_t flags : {T_WARP_NEAREST, T_WARP_BILINEAR}) {
    const char* const job =
        flags ? "onto a quadrilateral, bilinear, 24 bits" : "onto a quadrilateral, nearest, 24 bits";
    const auto add = [&](const std::string& who, size_t at) {
      group.lines.push_back({job, who, {Scaled(at, 1e3), TimesMemcpy(at, yardstick, all, all)}});
    };
    T_WarpPoint points[4];
    double places[4][2];
    for (int i = 0; i < 4; ++i) {
      points[i] = {256 * corners[i][0], 256 * corners[i][1]};
      for (int k = 0; k < 2; ++k) places[i][k] = corners[i][k];
    }
    add("T_CombineBitmapWarp", group.Add("warp", [=] {
      Require(T_CombineBitmapWarp(&*target, points, &*source, nullptr, flags) == SUCCESS, "T_CombineBitmapWarp");
    }));
    for (const auto& peer : Peers()) {
      const PeerJob way = peer->Warp(before, other, places, flags == T_WARP_BILINEAR);
      if (way.pass) add(peer->Name() + " " + way.call, group.Add("peer", way.pass));
    }
  }
  const size_t hidden = group.Add("scramble", [=] {
    Require(T_ScrambleBitmap(&*target, 0, 0, width, kRows, 7, T_SCRAMBLE_SCRAMBLE) == SUCCESS, "T_ScrambleBitmap");
  });
  group.lines.push_back(
      {"scrambled, 24 bits", "T_ScrambleBitmap", {Scaled(hidden, 1e3), TimesMemcpy(hidden, yardstick, all, all)}});
  return group;
}

}  // namespace bench
