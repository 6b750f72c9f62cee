#include "BatchCrew.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/signalfd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <system_error>

#include "Failure.h"

namespace tarn::tool {
namespace {

constexpr int kTickMilliseconds = 100;
constexpr int kMostBarren = 3;      // processes that die at once before a worker's place is left empty
constexpr uint8_t kMostDeaths = 2;  // of workers that had finished a picture but not yet named it
constexpr auto kPatience = std::chrono::seconds(5);

sigset_t EndingSignals() {
  sigset_t ending;
  sigemptyset(&ending);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    struct sigaction action {};
    // What the caller had ignored, as nohup does, stays ignored.
    if (sigaction(signal, nullptr, &action) == 0 && action.sa_handler != SIG_IGN) sigaddset(&ending, signal);
  }
  return ending;
}

std::string DeathOf(int status) {
  if (!WIFSIGNALED(status)) return "its process ended with code " + std::to_string(WEXITSTATUS(status));
  const int signal = WTERMSIG(status);
  if (signal == SIGKILL) return "its process was killed; the machine may have run out of memory";
  const char* const name = sigdescr_np(signal);
  return "its process crashed: " + std::string(name ? name : "signal " + std::to_string(signal));
}

}  // namespace

BatchCrew::BatchCrew(uint32_t items, int workers, BatchWork work, Console& console)
    : board_(items, workers),
      work_(std::move(work)),
      console_(console),
      workers_(static_cast<size_t>(workers)),
      heard_(items),
      attempts_(items) {}

BatchCrew::~BatchCrew() {
  Abandon(SIGKILL);
  for (const Worker& worker : workers_) {
    if (worker.results >= 0) close(worker.results);
    if (worker.process > 0) waitpid(worker.process, nullptr, 0);
  }
  if (signals_ >= 0) close(signals_);
}

bool BatchCrew::AnyAlive() const noexcept {
  for (const Worker& worker : workers_) {
    if (worker.process > 0) return true;
  }
  return false;
}

void BatchCrew::Abandon(int signal) noexcept {
  for (const Worker& worker : workers_) {
    if (worker.process > 0) kill(worker.process, signal);
  }
}

bool BatchCrew::Start(int number, const std::vector<uint32_t>& first) {
  Worker& worker = workers_[static_cast<size_t>(number)];
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return false;
  const pid_t parent = getpid();
  const pid_t process = fork();
  if (process == 0) {
    // Pipes of the others are theirs and the parent's: what ends with the last writer must not wait for this one.
    for (const Worker& other : workers_) {
      if (other.results >= 0) close(other.results);
    }
    close(ends[0]);
    close(signals_);
    const sigset_t ending = EndingSignals();
    sigprocmask(SIG_UNBLOCK, &ending, nullptr);
    _exit(WorkOnBatch(board_, number, parent, first, ends[1], work_, console_));
  }
  close(ends[1]);
  if (process < 0) {
    close(ends[0]);
    return false;
  }
  worker.process = process;
  worker.results = ends[0];
  worker.bytes.clear();
  return true;
}

void BatchCrew::Hear(const BatchResult& result, const Listener& listener) {
  if (result.item >= heard_.size() || heard_[result.item]) return;
  heard_[result.item] = true;
  if (result.code != 0) board_.Failed();
  listener.heard(result);
}

/// What the worker has to say, and its end.
void BatchCrew::Listen(int number, const Listener& listener) {
  Worker& worker = workers_[static_cast<size_t>(number)];
  char block[64 * 1024];
  const ssize_t got = read(worker.results, block, sizeof block);
  if (got < 0 && (errno == EINTR || errno == EAGAIN)) return;
  if (got > 0) {
    worker.bytes.append(block, static_cast<size_t>(got));
    for (BatchResult result; Unpack(worker.bytes, result);) Hear(result, listener);
    return;
  }
  Bury(number, listener);
}

/// The worker is gone. What it left goes to another one, unless it was the death of it.
void BatchCrew::Bury(int number, const Listener& listener) {
  Worker& worker = workers_[static_cast<size_t>(number)];
  close(worker.results);
  worker.results = -1;
  int status = 0;
  while (waitpid(worker.process, &status, 0) < 0 && errno == EINTR) {
  }
  worker.process = 0;
  const bool died = !WIFEXITED(status) || WEXITSTATUS(status) != 0;
  const uint32_t current = board_.At(number).item;  // plus 1
  board_.At(number).item = 0;
  if (ended_) return;

  const bool killed = WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL;
  const auto fail = [&](uint32_t item) {
    Hear({item, static_cast<int>(killed ? Exit::kMemory : Exit::kInternal), "", DeathOf(status), "", 0}, listener);
  };
  if (died && current != 0) fail(current - 1);
  std::vector<uint32_t> left;
  for (uint32_t item = 0; item < board_.Items(); ++item) {
    if (heard_[item] || !board_.Owns(item, number)) continue;
    if (died && ++attempts_[item] >= kMostDeaths) {
      fail(item);
    } else {
      left.push_back(item);
    }
  }
  worker.barren = died && current == 0 && left.empty() ? worker.barren + 1 : 0;
  if (board_.Stopped() || (left.empty() && board_.AllTaken())) return;
  if (worker.barren < kMostBarren && Start(number, left)) return;
  for (const uint32_t item : left) fail(item);
}

int BatchCrew::Run(const Listener& listener) {
  const sigset_t ending = EndingSignals();
  sigset_t before;
  sigprocmask(SIG_BLOCK, &ending, &before);
  signals_ = signalfd(-1, &ending, SFD_CLOEXEC | SFD_NONBLOCK);
  for (int i = 0; i < Workers(); ++i) {
    if (!Start(i, {}) && i == 0) {
      sigprocmask(SIG_SETMASK, &before, nullptr);
      throw Failure(Exit::kMemory, "", "no process can be started: " + std::generic_category().message(errno));
    }
  }

  using Clock = std::chrono::steady_clock;
  int signal = 0;
  Clock::time_point killAt = Clock::time_point::max();
  Clock::time_point tickAt = Clock::now();
  std::vector<pollfd> waits;
  while (AnyAlive()) {
    waits.assign(1, {signals_, POLLIN, 0});
    for (const Worker& worker : workers_)
      waits.push_back({worker.results, POLLIN, 0});  // negative ones are passed over
    const int timeout = listener.tick || ended_ ? kTickMilliseconds : -1;
    const int ready = poll(waits.data(), waits.size(), timeout);
    if (ready < 0 && errno != EINTR) break;
    if (ready > 0 && (waits[0].revents & POLLIN) != 0) {
      signalfd_siginfo info;
      while (read(signals_, &info, sizeof info) == static_cast<ssize_t>(sizeof info)) {
        // Asked a second time, or not answered for long, it does not wait for anybody.
        Abandon(ended_ ? SIGKILL : SIGTERM);
        if (!ended_) killAt = Clock::now() + kPatience;
        ended_ = true;
        board_.Stop();
        signal = static_cast<int>(info.ssi_signo);
      }
    }
    for (int i = 0; ready > 0 && i < Workers(); ++i) {
      if (waits[static_cast<size_t>(i) + 1].revents != 0) Listen(i, listener);
    }
    const Clock::time_point now = Clock::now();
    if (now >= killAt) Abandon(SIGKILL);
    if (listener.tick && now >= tickAt) {
      listener.tick();
      tickAt = now + std::chrono::milliseconds(kTickMilliseconds);
    }
  }
  sigprocmask(SIG_SETMASK, &before, nullptr);
  return signal;
}

}  // namespace tarn::tool
