// Scripts of file calls on a block of memory as a file, against a model.

#include <algorithm>
#include <cstring>
#include <vector>

#include "Targets.h"
#include "tarn/tarn.h"

using tarn::fuzz::Input;
using tarn::fuzz::Require;

void FuzzRedirect(const uint8_t* data, size_t size) {
  Input input(data, size);
  const uint32_t flags = (input.Byte() & 6) | T_BUFFER_WRITE | (input.Byte() & 1 ? T_BUFFER_GROW : 0);
  const uint32_t capacity = 1 + input.Below(5000);
  auto* const block = static_cast<uint8_t*>(T_GlobalAlloc(1, capacity, __LINE__, L"redirect"));
  Require(block, "block");
  for (uint32_t i = 0; i < capacity; ++i) block[i] = static_cast<uint8_t>(i * 31);

  T_BufferRedirect* redirect = nullptr;
  T_FileHandle file = 0;
  Require(T_StartRedirectToBuffer(&redirect, &file, flags, block, capacity) == SUCCESS, "start");
  std::vector<uint8_t> model;  // file bytes
  if (flags & T_BUFFER_CONTENTS) model.assign(block, block + capacity);
  uint64_t position = 0;
  bool exact = true;  // holes behind the end hold whatever the buffer held: from then on only safety is tested
  for (int step = 0; step < 40 && !input.Empty(); ++step) {
    switch (input.Byte() % 4) {
      case 0: {
        const uint32_t count = input.Below(3000);
        std::vector<uint8_t> bytes(count + 1, input.Byte());
        const int64_t put = T_RedirectedWrite(file, bytes.data(), count);
        if (put < 0) break;
        if (position > model.size()) exact = false;
        if (count == 0) {
          model.resize(position);
          break;
        }
        const auto moved = static_cast<uint64_t>(put);
        Require(moved <= count, "never more than asked");
        if (model.size() < position + moved) model.resize(position + moved);
        std::copy_n(bytes.begin(), moved, model.begin() + static_cast<std::ptrdiff_t>(position));
        position += moved;
        break;
      }
      case 1: {
        const uint32_t count = input.Below(3000);
        std::vector<uint8_t> bytes(count + 1, 0xEE);
        const int64_t got = T_RedirectedRead(file, bytes.data(), count);
        if (got < 0) {
          Require(position > model.size(), "reading fails behind the end only");
          break;
        }
        Require(static_cast<uint64_t>(got) == std::min<uint64_t>(count, model.size() - position), "bytes read");
        Require(!exact || std::equal(bytes.begin(), bytes.begin() + got,
                                     model.begin() + static_cast<std::ptrdiff_t>(position)),
                "bytes");
        position += static_cast<uint64_t>(got);
        break;
      }
      case 2: {
        const int32_t origin = input.Byte() % 3;
        const int64_t base = origin == 0 ? 0 : static_cast<int64_t>(origin == 1 ? position : model.size());
        const auto target = static_cast<int64_t>(input.Below(6000));
        Require(T_RedirectedSeek(file, target - base, origin) == target, "seek");
        position = static_cast<uint64_t>(target);
        break;
      }
      default:
        Require(T_RedirectedOpen(L"any", T_OPEN_READ_WRITE, 0) == T_BUFFER_FILE, "open");
        position = 0;
        break;
    }
  }
  Require(T_RedirectedClose(file) == 0, "close");
  void* final = nullptr;
  uint64_t length = 0;
  Require(T_StopRedirectToBuffer(redirect, &final, &length) == SUCCESS, "stop");
  Require(length == model.size(), "final length");
  Require(!exact || length == 0 || std::memcmp(final, model.data(), length) == 0, "final bytes");
  T_GlobalFree(final, __LINE__, L"redirect");
}
