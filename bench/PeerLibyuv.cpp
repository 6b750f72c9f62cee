// libyuv, whose RGB24 and ARGB are blue first in memory, as ours.

#include <libyuv.h>
#include <libyuv/scale_rgb.h>

#include "Bench.h"
#include "Peers.h"

namespace bench {
namespace {

using Byte = uint8_t;
using Plain = int (*)(const Byte*, int, Byte*, int, int, int);

/// Red and blue words of four exchanged.
int SwapWords(const Byte* source, int sourceStride, Byte* target, int targetStride, int width, int height) {
  static const uint8_t kOrder[16] = {4, 5, 2, 3, 0, 1, 6, 7, 12, 13, 10, 11, 8, 9, 14, 15};  // of bytes
  return libyuv::AR64Shuffle(reinterpret_cast<const uint16_t*>(source), sourceStride / 2,
                             reinterpret_cast<uint16_t*>(target), targetStride / 2, kOrder, width, height);
}

int Narrow(const Byte* source, int sourceStride, Byte* target, int targetStride, int width, int height) {
  libyuv::Convert16To8Plane(reinterpret_cast<const uint16_t*>(source), sourceStride / 2, target, targetStride, 256,
                            width, height);
  return 0;
}

/// 15 bits are the most that its vector code yields.
int Widen(const Byte* source, int sourceStride, Byte* target, int targetStride, int width, int height) {
  libyuv::Convert8To16Plane(source, sourceStride, reinterpret_cast<uint16_t*>(target), targetStride / 2, 1 << 15, width,
                            height);
  return 0;
}

template <libyuv::RotationMode kMode>
int Rotate32(const Byte* source, int sourceStride, Byte* target, int targetStride, int width, int height) {
  return libyuv::ARGBRotate(source, sourceStride, target, targetStride, width, height, kMode);
}

struct Known {
  Format from, to;
  const char* name;
  Plain call;
};
const Known kKnown[] = {
    {kBgr24, kGray8, "RGB24ToJ400", libyuv::RGB24ToJ400},
    {kBgr32, kGray8, "ARGBToJ400", libyuv::ARGBToJ400},
    {kBgr24, kBgr32, "RGB24ToARGB", libyuv::RGB24ToARGB},
    {kBgr32, kBgr24, "ARGBToRGB24", libyuv::ARGBToRGB24},
    {kBgr24, kRgb24, "RAWToRGB24", libyuv::RAWToRGB24},
    {kBgr32, kRgb32, "ARGBToABGR", libyuv::ARGBToABGR},
    {kBgr64, kRgb64, "AR64Shuffle", SwapWords},
    {kGray8, kBgr32, "J400ToARGB", libyuv::J400ToARGB},
    {kBgr32, kBgr16, "ARGBToARGB1555", libyuv::ARGBToARGB1555},
    {kBgr16, kBgr32, "ARGB1555ToARGB", libyuv::ARGB1555ToARGB},
    {kGray16, kGray8, "Convert16To8Plane", Narrow},
    {kGray8, kGray16, "Convert8To16Plane, 15 bits", Widen},
};

const Known* Find(Format from, Format to) {
  for (const Known& known : kKnown)
    if (known.from == from && known.to == to) return &known;
  return nullptr;
}

void Run(const Known& known, const Pixels& from, Pixels& to) {
  Require(known.call(from.bytes.data(), static_cast<int>(from.rowBytes), to.bytes.data(), static_cast<int>(to.rowBytes),
                     from.width, from.height) == 0,
          known.name);
}

struct ScaleCall {
  Format format;
  const char* name;
  void (*run)(const Pixels& from, Pixels& to, libyuv::FilterMode mode);
};
const ScaleCall kScaleCalls[] = {
    {kGray8, "ScalePlane",
     [](const Pixels& from, Pixels& to, libyuv::FilterMode mode) {
       libyuv::ScalePlane(from.bytes.data(), static_cast<int>(from.rowBytes), from.width, from.height, to.bytes.data(),
                          static_cast<int>(to.rowBytes), to.width, to.height, mode);
     }},
    {kGray16, "ScalePlane_16",
     [](const Pixels& from, Pixels& to, libyuv::FilterMode mode) {
       libyuv::ScalePlane_16(reinterpret_cast<const uint16_t*>(from.bytes.data()), static_cast<int>(from.rowBytes / 2),
                             from.width, from.height, reinterpret_cast<uint16_t*>(to.bytes.data()),
                             static_cast<int>(to.rowBytes / 2), to.width, to.height, mode);
     }},
    {kBgr24, "RGBScale",
     [](const Pixels& from, Pixels& to, libyuv::FilterMode mode) {
       libyuv::RGBScale(from.bytes.data(), static_cast<int>(from.rowBytes), from.width, from.height, to.bytes.data(),
                        static_cast<int>(to.rowBytes), to.width, to.height, mode);
     }},
    {kBgr32, "ARGBScale",
     [](const Pixels& from, Pixels& to, libyuv::FilterMode mode) {
       libyuv::ARGBScale(from.bytes.data(), static_cast<int>(from.rowBytes), from.width, from.height, to.bytes.data(),
                         static_cast<int>(to.rowBytes), to.width, to.height, mode);
     }},
};

const ScaleCall* FindScale(Format format) {
  for (const ScaleCall& call : kScaleCalls)
    if (call.format == format) return &call;
  return nullptr;
}

class Libyuv : public Peer {
 public:
  std::string Name() const override { return "libyuv"; }

  PeerJob Convert(const Pixels& source, Format target, const Palette&) override {
    const Known* const known = Find(source.format, target);
    if (!known) return {};
    const auto from = std::make_shared<Pixels>(source);
    const auto to = std::make_shared<Pixels>(target, source.width, source.height);
    const auto result = [=] {
      Pixels pixels = *to;
      for (size_t i = 1; known->call == Widen && i < pixels.bytes.size(); i += 2)
        pixels.bytes[i] = static_cast<uint8_t>(pixels.bytes[i] << 1 | pixels.bytes[i - 1] >> 7);
      return pixels;
    };
    return {known->name, [=] { Run(*known, *from, *to); }, result};
  }

  PeerJob ConvertInPlace(const Pixels& source, Format target) override {
    const Known* const known = Find(source.format, target);
    if (!known) return {};
    const auto pixels = std::make_shared<Pixels>(source);
    return {std::string(known->name) + " in place", [=] { Run(*known, *pixels, *pixels); }, {}};
  }

  std::vector<PeerJob> Turn(const Pixels& source, const TurnTask& task) override {
    using Way = TurnTask::Way;
    const auto from = std::make_shared<Pixels>(source);
    const auto to = std::make_shared<Pixels>(source.format, task.width, task.height);
    const auto job = [&](const char* name, auto call) -> std::vector<PeerJob> {
      return {{name,
               [=] {
                 call(from->bytes.data(), static_cast<int>(from->rowBytes), to->bytes.data(),
                      static_cast<int>(to->rowBytes), from->width, from->height);
               },
               [=] { return *to; }}};
    };
    const int32_t bits = source.format.bits;
    switch (task.way) {
      case Way::kMirror:
        if (bits == 8) return job("MirrorPlane", libyuv::MirrorPlane);
        if (bits == 24) return job("RGB24Mirror", libyuv::RGB24Mirror);
        if (bits == 32) return job("ARGBMirror", libyuv::ARGBMirror);
        return {};
      case Way::kHalf:
        if (bits == 8) return job("RotatePlane180", libyuv::RotatePlane180);
        if (bits == 32) return job("ARGBRotate", Rotate32<libyuv::kRotate180>);
        return {};
      case Way::kQuarter:
        if (bits == 8) return job("RotatePlane90", libyuv::RotatePlane90);
        if (bits == 32) return job("ARGBRotate", Rotate32<libyuv::kRotate90>);
        return {};
      default:
        return {};
    }
  }

  std::vector<PeerJob> Resize(const Pixels& source, const Scaling& scaling) override {
    using Way = Scaling::Way;
    const ScaleCall* const call = FindScale(source.format);
    if (!call || scaling.way == Way::kCubic || scaling.way == Way::kInk) return {};
    const libyuv::FilterMode mode = scaling.way == Way::kNearest ? libyuv::kFilterNone
                                    : scaling.way == Way::kBox   ? libyuv::kFilterBox
                                                                 : libyuv::kFilterBilinear;
    const auto from = std::make_shared<Pixels>(source);
    const auto to = std::make_shared<Pixels>(source.format, scaling.width, scaling.height);
    return {{call->name, [=] { call->run(*from, *to, mode); }, [=] { return *to; }}};
  }
};

}  // namespace

std::unique_ptr<Peer> LibyuvPeer() { return std::make_unique<Libyuv>(); }

}  // namespace bench
