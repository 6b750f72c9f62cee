#include "BatchWorker.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <condition_variable>
#include <csignal>
#include <cstdio>
#include <map>
#include <mutex>
#include <set>
#include <stdexcept>
#include <system_error>
#include <thread>

#include "Failure.h"

namespace tarn::tool {
namespace {

/// Results on their way to the parent, from two threads.
class Mouth {
 public:
  explicit Mouth(int pipe) : pipe_(pipe) {}
  void Say(const BatchResult& result) {
    const std::string bytes = Packed(result);
    const std::lock_guard<std::mutex> lock(mutex_);
    for (size_t sent = 0; sent < bytes.size();) {
      const ssize_t count = write(pipe_, bytes.data() + sent, bytes.size() - sent);
      if (count < 0 && errno != EINTR) _exit(static_cast<int>(Exit::kInternal));  // the parent is gone
      if (count > 0) sent += static_cast<size_t>(count);
    }
  }

 private:
  std::mutex mutex_;
  int pipe_;
};

template <class Step>
void Judged(BatchResult& result, const Step& step) {
  const auto failed = [&](Exit exit, const std::string& file, const char* reason) {
    result.code = static_cast<int>(exit);
    result.file = file;
    result.reason = reason;
  };
  try {
    step();
  } catch (const Failure& failure) {
    failed(failure.ExitCode(), failure.File(), failure.what());
  } catch (const std::bad_alloc&) {
    failed(Exit::kMemory, "", "no memory");
  } catch (const std::length_error&) {
    failed(Exit::kMemory, "", "no memory");
  } catch (const std::exception& error) {
    failed(Exit::kInternal, "", error.what());
  }
}

// ---- Finished files ------------------------------------------------------------------------------------------------

/// Brings finished files to the medium and names them, on a thread of its own. While one round waits for the medium the
/// next one gathers, so the quicker the pictures the more of them share a flush.
class Committer {
 public:
  explicit Committer(Mouth& mouth) : mouth_(mouth) {
    // Signals are for the thread that works.
    sigset_t all, before;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, &before);
    try {
      thread_ = std::thread([this] { Loop(); });
    } catch (const std::system_error&) {
      // Without a thread each file is committed at once.
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
  }
  ~Committer() { Finish(); }
  Committer(const Committer&) = delete;
  Committer& operator=(const Committer&) = delete;

  void Add(BatchResult result, std::unique_ptr<OutputFile> file) {
    std::vector<Finished> one;
    {
      std::unique_lock<std::mutex> lock(mutex_);
      if (thread_.joinable()) {
        changed_.wait(lock, [this] { return waiting_.size() < kMostWaiting; });
        waiting_.push_back({std::move(result), std::move(file)});
        changed_.notify_all();
        return;
      }
    }
    one.push_back({std::move(result), std::move(file)});
    Commit(one);
  }
  /// All files have been committed when it returns.
  void Finish() {
    if (!thread_.joinable()) return;
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      finishing_ = true;
      changed_.notify_all();
    }
    thread_.join();
  }

 private:
  struct Finished {
    BatchResult result;
    std::unique_ptr<OutputFile> file;
  };
  // With those of the round under way fewer than signals can clear away, and than a process may have open.
  static constexpr size_t kMostWaiting = OutputFile::kMostPending / 2 - 1;
  static constexpr size_t kEnoughForTogether = 4;

  void Loop() {
    for (;;) {
      std::vector<Finished> round;
      {
        std::unique_lock<std::mutex> lock(mutex_);
        changed_.wait(lock, [this] { return finishing_ || !waiting_.empty(); });
        if (waiting_.empty()) return;
        round.swap(waiting_);
        changed_.notify_all();
      }
      Commit(round);
    }
  }

  /// One flush of the file systems takes as long as one of a file. False where it cannot be had.
  static bool FlushTogether(const std::vector<Finished>& round) {
    if (round.size() < kEnoughForTogether) return false;
    std::set<dev_t> flushed;
    for (const Finished& each : round) {
      struct stat status {};
      if (fstat(each.file->Directory(), &status) != 0) return false;
      if (flushed.insert(status.st_dev).second && syncfs(each.file->Directory()) != 0) return false;
    }
    return true;
  }

  void Commit(std::vector<Finished>& round) {
    const bool flushed = FlushTogether(round);
    std::map<std::pair<dev_t, ino_t>, int> directories;
    for (Finished& each : round) {
      Judged(each.result, [&] {
        if (!flushed) each.file->Sync();
        each.file->TakeName();
      });
      struct stat status {};
      if (fstat(each.file->Directory(), &status) == 0) {
        directories[{status.st_dev, status.st_ino}] = each.file->Directory();
      }
    }
    for (const auto& directory : directories) fsync(directory.second);
    for (const Finished& each : round) mouth_.Say(each.result);
  }

  Mouth& mouth_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<Finished> waiting_;
  bool finishing_ = false;
  std::thread thread_;
};

// ---- The worker ----------------------------------------------------------------------------------------------------

/// Shows on the board how far the worker is.
class Shown final : public ProgressSink {
 public:
  Shown(BatchBoard& board, int worker) : board_(board), worker_(worker) {}
  void Begin(std::string_view label) noexcept override { board_.SetLabel(worker_, label); }
  void Reach(uint64_t done, uint64_t steps) noexcept override {
    board_.At(worker_).percent.store(static_cast<uint32_t>(done * 100 / steps), std::memory_order_relaxed);
  }

 private:
  BatchBoard& board_;
  int worker_;
};

/// Standard output of this process, read back after each picture.
class Printed {
 public:
  Printed() : file_(memfd_create("tarn-batch", MFD_CLOEXEC)) {
    if (file_ >= 0) dup2(file_, STDOUT_FILENO);
  }
  std::string Take() {
    std::fflush(stdout);
    const off_t length = file_ >= 0 ? lseek(file_, 0, SEEK_END) : 0;
    if (length <= 0) return "";
    std::string text(static_cast<size_t>(length), '\0');
    const ssize_t got = pread(file_, text.data(), text.size(), 0);
    text.resize(got > 0 ? static_cast<size_t>(got) : 0);
    if (ftruncate(file_, 0) == 0) lseek(file_, 0, SEEK_SET);
    return text;
  }

 private:
  int file_;
};

void PreferToBeKilled() {
  // When the machine runs out of memory, the kernel ends the process with the picture, not the one with the list.
  const int file = open("/proc/self/oom_score_adj", O_WRONLY | O_CLOEXEC);
  if (file < 0) return;
  [[maybe_unused]] const ssize_t ignored = write(file, "500", 3);
  close(file);
}

}  // namespace

int WorkOnBatch(BatchBoard& board, int worker, int parent, const std::vector<uint32_t>& first, int results,
                const BatchWork& work, Console& console) {
  prctl(PR_SET_PDEATHSIG, SIGTERM);
  if (getppid() != parent) return static_cast<int>(Exit::kInternal);
  PreferToBeKilled();
  Printed printed;
  Shown shown(board, worker);
  console.SendProgressTo(&shown);
  Mouth mouth(results);
  Committer committer(mouth);

  BatchBoard::Worker& self = board.At(worker);
  size_t begun = 0;
  bool fresh = true;  // no picture has used up the memory yet
  while (fresh) {
    std::optional<uint32_t> item;
    if (begun < first.size()) {
      if (board.Stopped()) break;
      item = first[begun++];
      board.Claim(*item, worker);
    } else {
      item = board.Take(worker);
    }
    if (!item) break;
    self.item = *item + 1;
    BatchResult result;
    result.item = *item;
    std::unique_ptr<OutputFile> made;
    Judged(result, [&] { work(*item, console, [&](std::unique_ptr<OutputFile> file) { made = std::move(file); }); });
    result.printed = printed.Take();
    fresh = result.code != static_cast<int>(Exit::kMemory);
    if (result.code == 0) {
      result.outputBytes = made->Size();
      committer.Add(std::move(result), std::move(made));
    } else {
      board.Failed();
      made.reset();
      mouth.Say(result);
    }
    self.item = 0;
  }
  committer.Finish();
  close(results);
  return 0;
}

}  // namespace tarn::tool
