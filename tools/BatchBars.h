#pragma once
// What a batch shows on a terminal: a line for all pictures and one for each worker, redrawn in place.

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "BatchBoard.h"

namespace tarn::tool {

class BatchBars {
 public:
  struct Sum {
    uint64_t through = 0;  // pictures, failed ones included
    uint64_t failed = 0;
    uint64_t all = 0;
    double bytesShare = 0;  // of the input's bytes that are through, 0 to 1
    double seconds = 0;
  };

  void Draw(const Sum& sum, BatchBoard& board, int workers);
  /// Wipes the lines, so that others can be written.
  void Clear();

 private:
  int drawn_ = 0;  // lines
};

}  // namespace tarn::tool
