// Compressed rows of any content: what was compressed comes back, damaged or not, and anything else is a status.

#include "tarn/codec.h"

#include <cstring>
#include <vector>

#include "Targets.h"

using tarn::fuzz::Input;
using tarn::fuzz::Require;

namespace {

using Bytes = std::vector<uint8_t>;

/// In memory of exactly the size that is asked for, so that the sanitizer sees every overrun.
int64_t Load(T_CodecBuffer job, Bytes data, Bytes& rows) {
  Require(fltLoadBuffer(&job) == SUCCESS, "load asked");
  Bytes work(job.WorkBytes);
  job.Work = work.data();
  data.push_back(0);  // has an address when there is nothing
  job.Data = data.data();
  job.DataBytes = data.size() - 1;
  job.Pixels = rows.data();
  return fltLoadBuffer(&job);
}

void Check(const T_CodecBuffer& job, const Bytes& data, const Bytes* wanted) {
  Bytes rows(size_t{job.BytesPerLine} * job.Height, 0xEE);
  const int64_t result = Load(job, data, rows);
  if (result == ERR_UNSUPPORTED_FORMAT) return;
  Require(result == static_cast<int64_t>(rows.size()), "bytes loaded");
  if (wanted) Require(rows == *wanted, "rows loaded from damaged data");
}

/// A header that fits the rows before whatever the input goes on with.
Bytes WithHeader(const T_CodecBuffer& job, Input& input) {
  Bytes data(32);
  const uint8_t first[5] = {'T', 'C', 1, static_cast<uint8_t>(job.BitsPerPixel),
                            static_cast<uint8_t>(input.Byte() % 4)};
  std::memcpy(data.data(), first, sizeof first);
  std::memcpy(&data[8], &job.BytesPerLine, 4);
  std::memcpy(&data[12], &job.Height, 4);
  const auto left = static_cast<uint32_t>(input.Left());
  const uint32_t second = job.BitsPerPixel == 24 && first[4] == 2 ? left / 3 : 0;
  const uint32_t frames[3] = {left - 2 * second, second, second};
  std::memcpy(&data[16], frames, sizeof frames);
  uint32_t check = 0x811C9DC5;
  for (int i = 0; i < 28; ++i) check = (check ^ data[static_cast<size_t>(i)]) * 0x01000193;
  std::memcpy(&data[28], &check, 4);
  while (!input.Empty()) data.push_back(input.Byte());
  return data;
}

}  // namespace

void FuzzCodec(const uint8_t* bytes, size_t size) {
  Input input(bytes, size);
  T_CodecBuffer job{};
  job.StructSize = sizeof job;
  const uint8_t mode = input.Byte();
  constexpr uint32_t kBits[] = {1, 8, 24};
  job.BitsPerPixel = kBits[mode % 3];
  job.BytesPerLine = 1 + input.Below(300);
  job.Height = 1 + input.Below(40);
  if (mode & 0x80) {
    Bytes data;
    if (mode & 0x40) {
      data = WithHeader(job, input);
    } else {
      while (!input.Empty()) data.push_back(input.Byte());
    }
    return Check(job, data, nullptr);
  }

  // What the input leaves over is repeated with changes until the rows are full.
  const uint32_t damages = (mode & 0x40) ? 1 + input.Below(6) : 0;
  uint32_t places[6][2];
  for (uint32_t i = 0; i < damages; ++i) {
    places[i][0] = input.Long();
    places[i][1] = input.Byte();
  }
  Bytes rows(size_t{job.BytesPerLine} * job.Height);
  const size_t period = input.Left();
  for (size_t i = 0; i < rows.size(); ++i)
    rows[i] = i < period ? input.Byte() : period ? static_cast<uint8_t>(rows[i - period] + (i % 11 == 0)) : uint8_t{0};

  Require(fltSaveBuffer(&job) == SUCCESS, "save asked");
  Bytes data(job.DataBytes);
  Bytes work(job.WorkBytes);
  T_CodecBuffer save = job;
  save.Pixels = rows.data();
  save.Data = data.data();
  save.Work = work.data();
  const int64_t written = fltSaveBuffer(&save);
  Require(written > 0 && written <= static_cast<int64_t>(data.size()), "bytes saved");
  data.resize(static_cast<size_t>(written));
  job.DataBytes = job.WorkBytes = 0;
  Bytes back(rows.size());
  Require(Load(job, data, back) == static_cast<int64_t>(rows.size()), "load");
  Require(back == rows, "rows loaded");
  if (damages == 0) return;
  for (uint32_t i = 0; i < damages; ++i) data[places[i][0] % data.size()] ^= static_cast<uint8_t>(places[i][1]);
  if (places[0][1] % 4 == 0) data.resize(places[0][0] % (data.size() + 1));
  Check(job, data, &rows);
}
