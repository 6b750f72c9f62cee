// Lines of a dithering run as a wave: up to kWaveLines below each other at once, each kWaveLag pixels behind the one
// above it.

#include <cstring>
#include <utility>

#include "Common/Internal/DitherRun.h"

namespace tarn {

Status DitherRun::OpenWave() noexcept {
  const bool none = gray_ ? !kernels_->dither->walkGray : !kernels_->dither->walk;
  if (none || kernel_.wide || kernel_.rows > kWaveRows) return SUCCESS;
  auto room = TrackedBuffer<uint8_t>::Zeroed(sizeof(DitherWave) + alignof(DitherWave), TARN_HERE);
  if (!room) return ERR_NO_MEMORY;
  if (colors_.rule == DitherColors::kTable) {
    words_ = TrackedBuffer<uint32_t>(kMatchKeys, TARN_HERE);
    if (!words_) return ERR_NO_MEMORY;
    // No more than 256 words occur: one of 257 is free to mean something else.
    bool isWord[257] = {};
    for (uint32_t i = 0; i < usableCount_; ++i) {
      const uint32_t word = WordOf(i);
      if (word < 257) isWord[word] = true;
    }
    uint32_t unseen = 0;
    while (isWord[unseen]) ++unseen;
    for (uint32_t key = 0; key < kMatchKeys; ++key) words_[key] = unseen;
    colors_.words = words_.data();
    colors_.unseen = unseen;
    colors_.see = See;
  }
  const auto address = reinterpret_cast<uintptr_t>(room.data());
  wave_ = reinterpret_cast<DitherWave*>(room.data() + (alignof(DitherWave) - address % alignof(DitherWave)));
  room_ = std::move(room);
  return SUCCESS;
}

uint32_t DitherRun::WordOf(uint32_t position) const noexcept {
  const T_PaletteEntry& entry = usable_[position];
  return entry.Blue | entry.Green * 0x100u | entry.Red * 0x10000u | indices_[position] * 0x1000000u;
}

void DitherRun::See(void* owner, uint32_t key) noexcept {
  DitherRun& run = *static_cast<DitherRun*>(owner);
  run.words_[key] = run.WordOf(Resolve(owner, key));
}

/// How many of so many lines go in the next wave, 0 for none: it takes some steps until its last line has begun.
int DitherRun::WaveOf(int lines) const noexcept {
  constexpr int kFewest = 4, kHalf = kWaveLines / 2;
  constexpr int64_t kWideEnough = 512;  // for all lines; narrower waves have less to begin and to end
  const int most = width_ < kWideEnough ? kHalf : kWaveLines;
  const int together = lines < most ? lines : most;
  const int64_t stepCost = together > kHalf ? 5 : 3;  // pixels of lines by fours that take as long
  const bool faster = stepCost * (width_ + kWaveLag * (together - 1)) < together * width_;
  return wave_ && together >= kFewest && faster ? together : 0;
}

/// Errors of the lines above the wave for some steps, where they touch pixels of the first line.
void DitherRun::FillAbove(int64_t step, int64_t count) noexcept {
  const int64_t lanes = gray_ ? 1 : 4, channels = gray_ ? 1 : 3;
  for (int distance = 1; distance <= kernel_.rows; ++distance) {
    const int64_t x = step + kWaveLag * distance;
    const int64_t first = x < -kDitherReach ? -kDitherReach - x : 0;
    const int64_t end = x + count > width_ + kDitherReach ? width_ + kDitherReach - x : count;
    const int16_t* const row = RowOf(lineNumber_ + static_cast<uint32_t>(rows_ - distance)) + x * lanes;
    for (int64_t i = first; i < end; ++i) {
      auto& errors = wave_->errors[(step + i) & (DitherWave::kSteps - 1)];
      for (int64_t c = 0; c < channels; ++c) errors[c][DitherWave::kFirst - distance] = row[i * lanes + c];
    }
  }
}

/// Errors of the last lines for those that come below the wave.
void DitherRun::TakeBelow() noexcept {
  const int64_t lanes = gray_ ? 1 : 4, channels = gray_ ? 1 : 3;
  for (int line = wave_->lines - 1; line >= wave_->lines - kernel_.rows; --line) {
    const int64_t first = wave_->step - int64_t{kWaveLag} * line;
    if (first < 0 || first >= width_) continue;
    int16_t* const row = RowOf(lineNumber_ + static_cast<uint32_t>(line)) + first * lanes;
    const auto* const errors = wave_->errors[wave_->step & (DitherWave::kSteps - 1)];
    const int64_t count = width_ - first < kWaveLag ? width_ - first : kWaveLag;
    for (int64_t i = 0; i < count; ++i) {
      for (int64_t c = 0; c < channels; ++c) row[i * lanes + c] = errors[3 * i + c][DitherWave::kFirst + line];
    }
  }
}

/// A line's next block: what was found of the one before is packed, pixels are decoded.
void DitherRun::TurnBlock(uint8_t* indices, const uint8_t* line, int number, int64_t first) noexcept {
  const int64_t before = first - kDitherBlock;
  if (before >= 0 && before < width_) {
    const int64_t count = width_ - before < kDitherBlock ? width_ - before : kDitherBlock;
    PutIndices(indices, wave_->indices[number] + (before & kDitherBlock), before, count);
  }
  if (first >= width_) return;
  const int64_t count = width_ - first < kDitherBlock ? width_ - first : kDitherBlock;
  if (gray_) {
    source_.Levels(wave_->pixels[number], line, first, count);
  } else {
    source_.Colors(wave_->pixels[number], line, first, count);
  }
  // Lines take turns, so that no processor sees by itself what will be read next.
  const int64_t end = source_.BytesTo(first + 2 * kDitherBlock < width_ ? first + 2 * kDitherBlock : width_);
  for (int64_t at = source_.BytesTo(first + count); at < end; at += 64) __builtin_prefetch(line + at, 0, 3);
}

/// Lines are decoded and packed kDitherBlock pixels at a time; whose turn it is goes round with the steps, because each
/// line begins its blocks one walk after the line above.
void DitherRun::WaveLines(uint8_t* const* indices, const uint8_t* const* lines, int count) noexcept {
  constexpr int64_t kBefore = kWaveLag * kWaveRows + kDitherReach;
  std::memset(wave_->errors, 0, sizeof wave_->errors);
  wave_->width = width_;
  wave_->lines = count;
  FillAbove(-kBefore, kBefore);
  const int64_t walks = (width_ + kWaveLag - 1) / kWaveLag + count - 1;
  // Every line's turn comes once more when it is at its end.
  constexpr int kPeriod = kDitherBlock / kWaveLag;
  const int64_t turns = (width_ + kDitherBlock - 1) / kDitherBlock * kPeriod + count;
  for (int64_t walk = 0; walk < turns; ++walk) {
    for (auto line = static_cast<int>(walk % kPeriod); line < count && line <= walk; line += kPeriod)
      TurnBlock(indices[line], lines[line], line, (walk - line) * kWaveLag);
    if (walk >= walks) continue;
    wave_->step = walk * kWaveLag;
    FillAbove(wave_->step, kWaveLag);
    if (gray_) {
      kernels_->dither->walkGray(*wave_, kernel_, grayBits_);
    } else {
      kernels_->dither->walk(*wave_, kernel_, colors_);
    }
    TakeBelow();
  }
  lineNumber_ += static_cast<uint32_t>(count);
}

}  // namespace tarn
