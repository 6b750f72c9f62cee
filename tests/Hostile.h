#pragma once
// What is done to damaged records, see Hostile_test.cpp.

#include <vector>

#include "engine/Picture.h"

namespace tarn {

/// What a probe may use besides the record. Buffers are as long as the undamaged record and the call's own arguments
/// ask for, and then some: what is behind them shows a call that went by the damaged ones.
struct HostileRoom {
  engine::Shape shape;
  engine::Bytes in;
  engine::Bytes out;
  engine::Bytes records;
  engine::Picture other;
  BitmapHandle made{};
  uint64_t rowBytes = 0;
};

struct HostileProbe {
  const char* name;
  bool puts;  // success changes pixels, or a failure may leave some put
  int64_t (*call)(BitmapHandle* record, HostileRoom& room);
  bool whole = false;  // goes over all rows
};

/// What changes, reads or makes whole pictures.
std::vector<HostileProbe> PictureProbes();

}  // namespace tarn
