// A codec library that keeps rows as they are, and gives wrong answers when it is told to.

#include "tarn/codec.h"

#include <cstring>

namespace {

/// What one of the four kinds of calls returns instead of its own answer; 0 where it is right.
struct Lies {
  int64_t askSave, save, askLoad, load;
  uint64_t dataBytes, workBytes;  // that asking for room to save tells
};
constexpr uint64_t kRight = 1 << 20;
Lies lies = {0, 0, 0, 0, kRight, 8};
constexpr int64_t kNothing = 1000;  // stands for 0 bytes

int64_t Answer(int64_t lie, int64_t right) noexcept { return lie == 0 ? right : lie == kNothing ? 0 : lie; }

}  // namespace

extern "C" void LieAbout(const int64_t* given) noexcept {
  lies = {given[0], given[1], given[2], given[3], static_cast<uint64_t>(given[4]), static_cast<uint64_t>(given[5])};
}

int64_t fltSaveBuffer(T_CodecBuffer* job) noexcept {
  const uint64_t bytes = uint64_t{job->BytesPerLine} * job->Height;
  if (!job->Data) {
    job->DataBytes = lies.dataBytes;
    job->WorkBytes = lies.workBytes;
    return Answer(lies.askSave, SUCCESS);
  }
  std::memcpy(job->Data, job->Pixels, bytes);
  return Answer(lies.save, static_cast<int64_t>(bytes));
}

int64_t fltLoadBuffer(T_CodecBuffer* job) noexcept {
  const uint64_t bytes = uint64_t{job->BytesPerLine} * job->Height;
  if (!job->Data) {
    job->WorkBytes = 8;
    return Answer(lies.askLoad, SUCCESS);
  }
  std::memcpy(job->Pixels, job->Data, bytes);
  return Answer(lies.load, static_cast<int64_t>(bytes));
}
