#pragma once
// Other imaging libraries, each in one source file, as far as they were there when the program was built. They do the
// same jobs in the same process, on one thread, with a picture that is already in the form they keep pictures in.

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "Pictures.h"

namespace bench {

struct PeerJob {
  std::string call;                // what is called, and whether the result is allocated by the call ("fresh")
  std::function<void()> pass;      // none: the library does not do this
  std::function<Pixels()> result;  // of the last pass; none where it cannot be compared
};

struct Reduction {
  enum class Way {
    kNearest,
    kFloydSteinberg,
    kOrdered,
    kChosen
  };  // the last: the nearest of 256 colours of its choice
  Way way;
  Palette palette;  // two colours: black and white
};

struct TurnTask {
  enum class Way { kFlip, kMirror, kHalf, kQuarter, kNearest, kCorrected, kBilinear, kShear };
  Way way;
  double degrees;  // clockwise, of the last four
  int32_t width;   // of the result
  int32_t height;
};

struct Scaling {
  /// The last is for one-bit pages made smaller: pixels are ink when some of what they cover is.
  enum class Way { kNearest, kBox, kLinear, kCubic, kInk };
  Way way;
  int32_t width;
  int32_t height;
};

class Peer {
 public:
  virtual ~Peer() = default;
  [[nodiscard]] virtual std::string Name() const = 0;
  /// Pixels in another format; `palette` is that of an index target. In place only between formats of one size.
  virtual PeerJob Convert(const Pixels& /*source*/, Format /*target*/, const Palette& /*palette*/) { return {}; }
  virtual PeerJob ConvertInPlace(const Pixels& /*source*/, Format /*target*/) { return {}; }
  /// All columns from `column` on, or the whole picture for 0.
  virtual std::vector<PeerJob> Copy(const Pixels& /*source*/, int32_t /*column*/) { return {}; }
  /// Fewer colours, from 24-bit or gray pixels.
  virtual std::vector<PeerJob> Reduce(const Pixels& /*source*/, const Reduction& /*reduction*/) { return {}; }
  /// Pictures turned and slanted; quarters of a turn clockwise.
  virtual std::vector<PeerJob> Turn(const Pixels& /*source*/, const TurnTask& /*task*/) { return {}; }
  /// Another size.
  virtual std::vector<PeerJob> Resize(const Pixels& /*source*/, const Scaling& /*scaling*/) { return {}; }
  /// Two pictures of one format by a T_COMBINE_... operation.
  virtual PeerJob Combine(const Pixels& /*target*/, const Pixels& /*source*/, uint32_t /*operation*/) { return {}; }
  /// A picture mapped onto a quadrilateral, whose corners are those of upper left, upper right, lower right and lower
  /// left ones, in pixels from the upper left corner.
  virtual PeerJob Warp(const Pixels& /*target*/, const Pixels& /*source*/, const double (&)[4][2], bool /*bilinear*/) {
    return {};
  }
  virtual PeerJob CountColours(const Pixels& /*source*/) { return {}; }
};

/// Those that are there.
std::vector<std::unique_ptr<Peer>> Peers();

std::unique_ptr<Peer> OpenCvPeer();
std::unique_ptr<Peer> LibyuvPeer();
std::unique_ptr<Peer> LeptonicaPeer();
std::unique_ptr<Peer> FreeImagePeer();
std::unique_ptr<Peer> GraphicsMagickPeer();
std::unique_ptr<Peer> ImagequantPeer();
std::unique_ptr<Peer> SwscalePeer();
std::unique_ptr<Peer> StbPeer();
std::unique_ptr<Peer> PillowPeer();  // null when its module cannot be imported

}  // namespace bench
