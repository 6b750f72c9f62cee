#include "BatchBoard.h"

#include <sys/mman.h>

#include <algorithm>
#include <cstring>
#include <new>

namespace tarn::tool {
namespace {

constexpr size_t kMostText = 16 * 1024;

struct Envelope {
  uint32_t item;
  int32_t code;
  uint64_t outputBytes;
  uint32_t lengths[3];  // file, reason, printed
};

}  // namespace

BatchBoard::BatchBoard(uint32_t items, int workers)
    : items_(items),
      bytes_(sizeof(Head) + sizeof(Worker) * static_cast<size_t>(workers) + sizeof(*owners_) * items),
      block_(mmap(nullptr, bytes_, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0)) {
  static_assert(std::atomic<uint32_t>::is_always_lock_free && std::atomic<uint16_t>::is_always_lock_free);
  static_assert(sizeof(Head) % alignof(Worker) == 0 && sizeof(Worker) % alignof(std::atomic<uint16_t>) == 0);
  if (block_ == MAP_FAILED) throw std::bad_alloc();
  // Zero bytes are what all of it begins as.
  head_ = new (block_) Head{};
  workers_ = reinterpret_cast<Worker*>(head_ + 1);
  owners_ = reinterpret_cast<std::atomic<uint16_t>*>(workers_ + workers);
}

BatchBoard::~BatchBoard() { munmap(block_, bytes_); }

std::optional<uint32_t> BatchBoard::Take(int worker) noexcept {
  if (head_->stopped) return std::nullopt;
  uint32_t item = head_->next.load();
  do {
    if (item >= items_) return std::nullopt;
  } while (!head_->next.compare_exchange_weak(item, item + 1));
  Claim(item, worker);
  return item;
}

void BatchBoard::SetLabel(int worker, std::string_view label) noexcept {
  Worker& at = workers_[worker];
  at.labels.fetch_add(1);
  const size_t length = std::min(label.size(), kLabelBytes - 1);
  std::memcpy(at.label, label.data(), length);
  at.label[length] = 0;
  at.percent = 0;
  at.labels.fetch_add(1);
}

std::string BatchBoard::Label(int worker) const {
  const Worker& at = workers_[worker];
  char copy[kLabelBytes] = {};
  const uint32_t before = at.labels.load();
  std::memcpy(copy, at.label, kLabelBytes - 1);
  // One that is being written is shown the next time.
  return before % 2 == 0 && at.labels.load() == before ? std::string(copy) : std::string();
}

std::string Packed(const BatchResult& result) {
  std::string bytes;
  Envelope envelope{result.item, result.code, result.outputBytes, {}};
  const std::string* const texts[] = {&result.file, &result.reason, &result.printed};
  for (size_t i = 0; i < 3; ++i) envelope.lengths[i] = static_cast<uint32_t>(std::min(texts[i]->size(), kMostText));
  bytes.append(reinterpret_cast<const char*>(&envelope), sizeof envelope);
  for (size_t i = 0; i < 3; ++i) bytes.append(*texts[i], 0, envelope.lengths[i]);
  return bytes;
}

bool Unpack(std::string& bytes, BatchResult& result) {
  Envelope envelope;
  if (bytes.size() < sizeof envelope) return false;
  std::memcpy(&envelope, bytes.data(), sizeof envelope);
  size_t whole = sizeof envelope;
  for (const uint32_t length : envelope.lengths) whole += length;
  if (bytes.size() < whole) return false;
  result = {envelope.item, envelope.code, "", "", "", envelope.outputBytes};
  std::string* const texts[] = {&result.file, &result.reason, &result.printed};
  size_t at = sizeof envelope;
  for (size_t i = 0; i < 3; ++i) {
    texts[i]->assign(bytes, at, envelope.lengths[i]);
    at += envelope.lengths[i];
  }
  bytes.erase(0, whole);
  return true;
}

}  // namespace tarn::tool
