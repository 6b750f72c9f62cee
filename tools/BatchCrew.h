#pragma once
// The processes of a batch, from outside. A worker that crashes or is killed costs the picture it was at: another one
// takes its place and what it had not finished yet.

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

#include "BatchBoard.h"
#include "BatchWorker.h"

namespace tarn::tool {

class BatchCrew {
 public:
  /// Called in this process. `heard` gets every result once; `tick` is called some ten times a second, if at all.
  struct Listener {
    std::function<void(const BatchResult&)> heard;
    std::function<void()> tick;
  };

  /// Throws std::bad_alloc, Failure when processes cannot be had. Call it while the process has one thread.
  BatchCrew(uint32_t items, int workers, BatchWork work, Console& console);
  ~BatchCrew();
  BatchCrew(const BatchCrew&) = delete;
  BatchCrew& operator=(const BatchCrew&) = delete;

  /// Lets the workers go through all pictures. SIGINT, SIGTERM and SIGHUP abandon those under way, without a trace of
  /// their outputs.
  /// @return the signal that ended it, or 0
  int Run(const Listener& listener);
  BatchBoard& Board() noexcept { return board_; }
  int Workers() const noexcept { return static_cast<int>(workers_.size()); }

 private:
  struct Worker {
    pid_t process = 0;  // 0: none
    int results = -1;   // pipe from it
    std::string bytes;  // of a result that has not come in whole
    int barren = 0;     // processes in a row that died before they came to a picture
  };

  bool Start(int worker, const std::vector<uint32_t>& first);
  void Listen(int worker, const Listener& listener);
  void Hear(const BatchResult& result, const Listener& listener);
  void Bury(int worker, const Listener& listener);
  void Abandon(int signal) noexcept;
  bool AnyAlive() const noexcept;

  BatchBoard board_;
  BatchWork work_;
  Console& console_;
  std::vector<Worker> workers_;
  std::vector<bool> heard_;        // by picture
  std::vector<uint8_t> attempts_;  // by picture: workers that died with it unfinished
  bool ended_ = false;             // by a signal
  int signals_ = -1;               // descriptor that tells of signals
};

}  // namespace tarn::tool
