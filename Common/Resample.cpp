// Averaged and interpolated rows: from the bitmap's format to samples, across, down, and back.

#include <cstring>
#include <new>

#include "Common/Internal/Checks.h"
#include "Common/Internal/Geometry.h"
#include "Common/Internal/Resampler.h"
#include "Common/Internal/Scaling.h"
#include "tarn/convert.h"
#include "tarn/dither.h"
#include "tarn/memory.h"
#include "tarn/palette.h"
#include "tarn/resize.h"

namespace tarn {

Status ScaleAxis::Open(int32_t from, int32_t to, bool spline, bool rounded, Here here) noexcept {
  source = from;
  target = to;
  if (from == to) return SUCCESS;
  if (to < from) return MakeBoxCells(*this, rounded, here);
  return spline ? MakeSplinePlaces(*this, here) : MakeLinearSpots(*this, here);
}

// ---- Formats -------------------------------------------------------------------------------------------------------

Status Resampler::ChooseFormat() noexcept {
  const int32_t bits = source_.BitsPerPixel;
  const bool deepGray = bits == 12 || ((bits == 16 || bits == 32) && source_.Order == T_ORDER_GRAY);
  const bool isSigned = (source_.Flags & T_FLAG_SIGNED_DATA) != 0;
  Sample sample = Sample::kU8;
  if (deepGray) {
    sampleBytes_ = bits == 32 ? 4 : 2;
    if (bits == 32)
      sample = isSigned ? Sample::kS32 : Sample::kU32;
    else
      sample = isSigned ? Sample::kS16 : Sample::kU16;
    const bool whole = source_.LowBit <= 0 && (source_.HighBit < 0 || source_.HighBit == bits - 1);
    converted_ = bits == 12 || (bits == 16 && !whole);
    if (converted_) {
      const LineFormat own = {bits, T_ORDER_GRAY, nullptr};
      const LineFormat samples = {16, T_ORDER_GRAY, nullptr};
      TARN_TRY(in_.Open(own, samples, {T_CONVERT_SOURCE_RANGE, source_.LowBit, source_.HighBit}));
      TARN_TRY(out_.Open(samples, own, {T_CONVERT_TARGET_RANGE, source_.LowBit, source_.HighBit}));
    }
  } else if (bits >= 48) {
    sampleBytes_ = 2;
    sample = isSigned ? Sample::kS16 : Sample::kU16;
    channels_ = bits / 16;
  } else if (bits >= 24) {
    channels_ = bits / 8;
  } else if (bits == 16) {
    channels_ = 4;
    converted_ = true;
    const uint32_t order = source_.Order == T_ORDER_RGB ? T_ORDER_RGB : T_ORDER_BGR;
    TARN_TRY(in_.Open({16, order, nullptr}, {32, order, nullptr}, {}));
    TARN_TRY(out_.Open({32, order, nullptr}, {16, order, nullptr}, {}));
  } else if (bits != 8 || T_IsGrayScaleBitmap(&source_) != 1) {
    channels_ = 3;
    converted_ = true;
    dithered_ = true;
    std::memset(sourcePalette_, 0, sizeof sourcePalette_);
    std::memset(palette_, 0, sizeof palette_);
    const bool own = T_GetBitmapPaletteEntries(&source_, 0, 256, sourcePalette_) != 0;
    TARN_TRY(in_.Open({bits, T_ORDER_RGB, own ? sourcePalette_ : nullptr}, {24, T_ORDER_BGR, nullptr}, {}));
    colors_ = T_GetBitmapPaletteEntries(&format_, 0, 1u << bits, palette_);
    if (colors_ == 0) {
      T_GetFixedPalette(palette_, static_cast<uint32_t>(bits));
      colors_ = 1u << bits;
    }
  }
  kernels_ = Kernels().scale->samples[static_cast<int>(sample)];
  return SUCCESS;
}

Status Resampler::StartDithering() noexcept {
  DitherRun::Destroy(dither_);
  dither_ = nullptr;
  BitmapHandle work;
  TARN_TRY(T_InitBitmap(&work, sizeof work, columns_.target, rows_.target, 24));
  work.Order = T_ORDER_BGR;
  Status status = SUCCESS;
  const auto bits = static_cast<uint32_t>(format_.BitsPerPixel);
  dither_ = DitherRun::Create(work, DITHER_FLOYD_STEINBERG, {palette_, colors_, bits, nullptr}, status);
  firstDithered_ = nextDithered_ = 0;
  if (dither_) (void)dither_->OpenGroups();  // without, it only takes longer
  return status;
}

// ---- Opening -------------------------------------------------------------------------------------------------------

Status Resampler::OpenTaps(Here here) noexcept {
  const bool words = kernels_ == Kernels().scale->samples[static_cast<int>(Sample::kU16)];
  if (columns_.cells && (sampleBytes_ == 1 || words)) return OpenBoxTaps(here);
  if (columns_.spots && (sampleBytes_ == 1 || words)) return OpenLinearTaps(here);
  if (sampleBytes_ != 1) return SUCCESS;
  constexpr int64_t kMostAhead = 1 << 16;  // samples of a row: they take 96 times as many bytes
  together_ = columns_.places && columns_.source > 2 && Kernels().scale->splineRows &&
              int64_t{columns_.source} * channels_ <= kMostAhead;
  if (together_) heldRows_ = kHeldAhead;
  return SUCCESS;
}

Status Resampler::OpenBuffers(Here here) noexcept {
  const auto width = static_cast<uint64_t>(columns_.source);
  const auto channels = static_cast<uint64_t>(channels_);
  if (converted_ || (together_ && !reader_.InOneBlock())) {
    line_ = TrackedBuffer<uint8_t>((together_ ? kSplineRows : 1) * (width * channels * sampleBytes_ + 4), here);
    if (!line_) return ERR_NO_MEMORY;
  }
  stride_ = (static_cast<uint64_t>(rowSamples_) * sampleBytes_ + 63) & ~uint64_t{63};
  held_ = TrackedBuffer<uint8_t>(static_cast<uint32_t>(heldRows_) * stride_, here);
  if (!held_) return ERR_NO_MEMORY;
  if (converted_) {
    if (dithered_) ahead_ = rows_.target < kWaveLines ? rows_.target : kWaveLines;
    made_ = TrackedBuffer<uint8_t>(stride_ * static_cast<uint32_t>(ahead_), here);
    if (!made_) return ERR_NO_MEMORY;
  }
  if (dithered_) {
    ditheredBytes_ = (static_cast<uint64_t>(columns_.target) * static_cast<uint32_t>(format_.BitsPerPixel) + 7) / 8;
    ditheredRows_ = TrackedBuffer<uint8_t>(ditheredBytes_ * static_cast<uint32_t>(ahead_), here);
    if (!ditheredRows_) return ERR_NO_MEMORY;
  }
  if (rows_.cells && !FewRows()) {
    const bool narrow = rows_.largestTotal < kernels_->narrowTotal;
    const uint32_t sumBytes = narrow ? kernels_->narrowSumBytes : kernels_->wideSumBytes;
    sums_ = TrackedBuffer<uint8_t>(static_cast<uint64_t>(rowSamples_) * sumBytes, here);
    if (!sums_) return ERR_NO_MEMORY;
  }
  if (together_) {
    work_ = TrackedBuffer<uint8_t>(96 * width * channels + 256 + 64, here);
    if (!work_) return ERR_NO_MEMORY;
  } else if (columns_.places) {
    second_ = TrackedBuffer<uint8_t>(width * channels * kernels_->realBytes, here);
    work_ = TrackedBuffer<uint8_t>(width, here);
    if (!second_ || !work_) return ERR_NO_MEMORY;
  }
  return SUCCESS;
}

Status Resampler::Open(const BitmapHandle& format, int32_t width, int32_t height, bool spline) noexcept {
  const Here here = TARN_HERE;
  format_ = format;
  TARN_TRY(reader_.Open());
  TARN_TRY(ChooseFormat());
  TARN_TRY(columns_.Open(source_.Width, width, spline, true, here));
  TARN_TRY(rows_.Open(source_.Height, height, spline, spline, here));
  rowSamples_ = int64_t{width} * channels_;
  TARN_TRY(OpenTaps(here));
  TARN_TRY(OpenBuffers(here));
  return dithered_ ? StartDithering() : Status(SUCCESS);
}

// ---- Rows ----------------------------------------------------------------------------------------------------------

void Resampler::AcrossCells(uint8_t* const* targets, const uint8_t* const* lines, int32_t count) noexcept {
  const ScaleKernels& scale = *Kernels().scale;
  if (parts_) {
    for (int32_t i = 0; i < count; ++i) scale.averageBytes(targets[i], lines[i], columns_.target, parts_);
    return;
  }
  const BoxCell* const cells = columns_.cells.data();
  if (taps_) {
    const auto make = sampleBytes_ == 1 ? scale.boxTaps : scale.boxTaps16;
    make({targets, lines, count}, taps_.taps(), static_cast<uint32_t>(cells[0].Total()));
  }
  const int64_t made = taps_ ? tapPixels_ : 0;
  if (made == columns_.target) return;
  const bool narrow = columns_.largestTotal < kernels_->narrowTotal;
  const auto make = narrow ? kernels_->boxLine : kernels_->boxLineWide;
  for (int32_t i = 0; i < count; ++i)
    make(targets[i] + made * channels_ * sampleBytes_, lines[i], cells + made, columns_.target - made, channels_);
}

void Resampler::Across(void* target, const void* line) noexcept {
  const int32_t width = columns_.target;
  if (columns_.cells) {
    auto* const made = static_cast<uint8_t*>(target);
    const auto* const from = static_cast<const uint8_t*>(line);
    AcrossCells(&made, &from, 1);
  } else if (taps_) {
    const auto make = sampleBytes_ == 1 ? Kernels().scale->linearTaps : Kernels().scale->linearTaps16;
    make(static_cast<uint8_t*>(target), static_cast<const uint8_t*>(line), taps_.taps());
  } else if (columns_.spots) {
    kernels_->linearLine(target, line, columns_.spots.data(), width, channels_);
  } else if (columns_.places) {
    kernels_->splineDerivatives(second_.data(), line, columns_.source, channels_, work_.data());
    kernels_->splineLine(target, line, second_.data(), columns_.places.data(), width, channels_);
  } else {
    std::memcpy(target, line, static_cast<uint64_t>(rowSamples_) * sampleBytes_);
  }
}

/// A source row and those behind it; false when one cannot be read.
bool Resampler::MakeAhead(int32_t row) noexcept {
  const auto lineBytes = static_cast<uint64_t>(columns_.source) * static_cast<uint32_t>(channels_);
  const uint8_t* sources[kSplineRows];
  uint8_t* targets[kSplineRows];
  for (int32_t i = 0; i < kSplineRows; ++i) {
    const int32_t at = row + i;
    if (at >= rows_.source) {       // the last row once more
      sources[i] = sources[i - 1];  // NOLINT: not the first
      targets[i] = targets[i - 1];
      continue;
    }
    sources[i] = reader_.Row(at);
    if (!sources[i]) return false;
    if (line_) {
      uint8_t* const line = line_.data() + static_cast<uint32_t>(i) * (lineBytes + 4);
      if (converted_)
        in_.Convert(line, sources[i], columns_.source);
      else
        std::memcpy(line, sources[i], lineBytes);
      sources[i] = line;
    }
    targets[i] = held_.data() + static_cast<uint64_t>(at % heldRows_) * stride_;
  }
  auto* const work = reinterpret_cast<uint8_t*>((reinterpret_cast<uintptr_t>(work_.data()) + 63) & ~uintptr_t{63});
  Kernels().scale->splineRows(targets, sources, columns_.source, channels_, columns_.places.data(), columns_.target,
                              work);
  for (int32_t at = row; at < row + kSplineRows && at < rows_.source; ++at) heldRow_[at % heldRows_] = at;
  return true;
}

constexpr int32_t kRowsAhead = 4;  // that the memory is asked for

/// Those of `count` rows that are not held yet, where rows are in memory as samples.
void Resampler::AcrossTogether(int32_t row, int32_t count) noexcept {
  if (converted_ || !columns_.cells || !reader_.InOneBlock()) return;
  uint8_t* targets[kHeld];
  const uint8_t* lines[kHeld];
  int32_t missing = 0;
  for (int32_t at = row; at < row + count; ++at) {
    const int slot = at % heldRows_;
    if (heldRow_[slot] == at) continue;
    heldRow_[slot] = at;
    targets[missing] = held_.data() + static_cast<uint64_t>(slot) * stride_;
    lines[missing++] = reader_.Row(at);
    if (!parts_) reader_.Ask(at + kRowsAhead);  // where the time is not that of the memory alone
  }
  AcrossCells(targets, lines, missing);
}

/// A source row of the new width, valid until heldRows_ others were asked for; null when it cannot be read.
const void* Resampler::SourceRow(int32_t row) noexcept {
  const int slot = row % heldRows_;
  uint8_t* const held = held_.data() + static_cast<uint64_t>(slot) * stride_;
  if (heldRow_[slot] == row) return held;
  if (together_) return MakeAhead(row) ? held : nullptr;
  const uint8_t* line = reader_.Row(row);
  if (!line) return nullptr;
  if (!columns_.cells) reader_.Ask(row + 2);  // the next one comes after some rows of the result
  if (converted_) {
    in_.Convert(line_.data(), line, columns_.source);
    line = line_.data();
  }
  Across(held, line);
  heldRow_[slot] = row;
  return held;
}

Status Resampler::AverageRows(void* target, const BoxCell& cell) noexcept {
  if (FewRows()) {
    const void* lines[kMostRows];
    uint16_t weights[kMostRows];
    AcrossTogether(cell.first, 1 + cell.whole + (cell.endWeight != 0));
    int32_t count = 0;
    for (; count <= cell.whole || (cell.endWeight && count == cell.whole + 1); ++count) {
      lines[count] = SourceRow(cell.first + count);
      if (!lines[count]) return reader_.status();
      weights[count] = count == 0 ? cell.firstWeight : count <= cell.whole ? uint16_t{4096} : cell.endWeight;
    }
    kernels_->averageRows(target, lines, weights, count, rowSamples_);
    return SUCCESS;
  }
  const bool narrow = rows_.largestTotal < kernels_->narrowTotal;
  const auto weigh = narrow ? kernels_->weighRow : kernels_->weighRowWide;
  const int32_t end = cell.first + 1 + cell.whole;
  for (int32_t row = cell.first; row < end + (cell.endWeight != 0); ++row) {
    const void* const line = SourceRow(row);
    if (!line) return reader_.status();
    weigh(sums_.data(), line,
          row == cell.first ? cell.firstWeight
          : row < end       ? 4096
                            : cell.endWeight,
          rowSamples_, row != cell.first);
  }
  (narrow ? kernels_->divideRow : kernels_->divideRowWide)(target, sums_.data(), cell.Total(), rowSamples_);
  return SUCCESS;
}

/// A result row in samples.
Status Resampler::Samples(void* target, int32_t row) noexcept {
  const auto at = static_cast<uint64_t>(row);
  if (rows_.cells) return AverageRows(target, rows_.cells[at]);
  int32_t from = row;
  if (rows_.spots) {
    const LinearSpot spot = rows_.spots[at];
    from = spot.from;
    if (spot.k != 0 && spot.to != spot.from) {
      const void* const a = SourceRow(spot.from);
      const void* const b = a ? SourceRow(spot.to) : nullptr;
      if (!b) return reader_.status();
      kernels_->linearRow(target, a, b, spot.k, spot.n, rowSamples_);
      return SUCCESS;
    }
  } else if (rows_.places) {
    const SplineSpot spot = rows_.places[at];
    from = spot.from;
    if (spot.t != 0.0f) {
      const void* lines[4];
      for (int32_t i = 0; i < 4; ++i) {
        const int32_t y = from - 1 + i;  // the first and the last row stand for those beyond
        lines[i] = SourceRow(y < 0 ? 0 : y < rows_.source ? y : rows_.source - 1);
        if (!lines[i]) return reader_.status();
      }
      kernels_->splineRow(target, lines, spot, rowSamples_);
      return SUCCESS;
    }
  }
  const void* const line = SourceRow(from);
  if (!line) return reader_.status();
  std::memcpy(target, line, static_cast<uint64_t>(rowSamples_) * sampleBytes_);
  return SUCCESS;
}

/// The next rows together, which is what dithering is fast at. A row that cannot be made is one for the next time.
Status Resampler::DitherAhead() noexcept {
  uint8_t* targets[kWaveLines];
  const uint8_t* lines[kWaveLines];
  const int32_t left = rows_.target - nextDithered_;
  int32_t count = 0;
  for (; count < (left < ahead_ ? left : ahead_); ++count) {
    const auto at = static_cast<uint32_t>(count);
    const Status made = Samples(made_.data() + at * stride_, nextDithered_ + count);
    if (!made.Ok() && count == 0) return made;
    if (!made.Ok()) break;
    lines[count] = made_.data() + at * stride_;
    targets[count] = ditheredRows_.data() + at * ditheredBytes_;
  }
  std::memset(ditheredRows_.data(), 0, ditheredBytes_ * static_cast<uint32_t>(count));
  dither_->Lines(targets, lines, count);
  firstDithered_ = nextDithered_;
  nextDithered_ += count;
  return SUCCESS;
}

Status Resampler::DitherTo(uint8_t* target, uint64_t bytes, int32_t row) noexcept {
  if (row < firstDithered_) TARN_TRY(StartDithering());
  while (nextDithered_ <= row) TARN_TRY(DitherAhead());
  std::memcpy(target, ditheredRows_.data() + static_cast<uint32_t>(row - firstDithered_) * ditheredBytes_,
              ditheredBytes_);
  std::memset(target + ditheredBytes_, 0, bytes - ditheredBytes_);
  return SUCCESS;
}

Status Resampler::Make(uint8_t* target, uint64_t bytes, int32_t row) noexcept {
  if (dithered_) return DitherTo(target, bytes, row);
  const uint64_t used = (static_cast<uint64_t>(columns_.target) * static_cast<uint32_t>(format_.BitsPerPixel) + 7) / 8;
  if (converted_) {
    TARN_TRY(Samples(made_.data(), row));
    out_.Convert(target, made_.data(), columns_.target);
  } else {
    TARN_TRY(Samples(target, row));
  }
  std::memset(target + used, 0, bytes - used);
  return SUCCESS;
}

Status ScaleSamples(BitmapHandle& target, BitmapHandle& source, bool spline, bool reversed) noexcept {
  Resampler rows(source);
  TARN_TRY(rows.Open(target, target.Width, target.Height, spline));
  return WriteRows(target, rows, reversed);
}

// ---- Streaming -----------------------------------------------------------------------------------------------------

namespace {

constexpr uint32_t kStateBytes = 2736;

/// What T_StartResizeBitmap hands out.
struct RowState {
  uint32_t size;
  int32_t lockedBefore;
  int32_t width;
  int32_t height;
  int32_t bits;
  uint32_t rowBytes;
  BitmapHandle* source;
  void* block;  // where `rows` lies
  Resampler* rows;
  uint8_t* line;
  uint8_t unused[kStateBytes - 56];
};
static_assert(sizeof(RowState) == kStateBytes);

void FreeState(RowState* state) noexcept {
  const Here here = TARN_HERE;
  if (state->rows) state->rows->~Resampler();
  if (state->block) T_LocalFree(state->block, here.line, here.file);
  if (state->line) T_LocalFree(state->line, here.line, here.file);
  T_UnlockBitmap(state->source, state->lockedBefore);
  T_LocalFree(state, here.line, here.file);
}

Status FillState(RowState& state, BitmapHandle& source, ScaleMethod method) noexcept {
  const Here here = TARN_HERE;
  state.size = kStateBytes;
  state.source = &source;
  state.lockedBefore = T_LockBitmap(&source);
  constexpr uint64_t kSpare = alignof(Resampler) - 1;
  state.block = T_LocalAlloc(1, sizeof(Resampler) + kSpare, here.line, here.file);
  state.line = static_cast<uint8_t*>(T_LocalAlloc(state.rowBytes, 1, here.line, here.file));
  if (!state.block || !state.line) return ERR_NO_MEMORY;
  const auto address = (reinterpret_cast<uintptr_t>(state.block) + kSpare) & ~uintptr_t{kSpare};
  state.rows = new (reinterpret_cast<void*>(address)) Resampler(source);
  return state.rows->Open(source, state.width, state.height, method == ScaleMethod::kSpline);
}

RowState* StateOf(void* state) noexcept {
  auto* const known = static_cast<RowState*>(state);
  return known && known->size == kStateBytes ? known : nullptr;
}

Status Resample(BitmapHandle& bitmap, int32_t width, int32_t height, ScaleMethod method) noexcept {
  const uint32_t flags = method == ScaleMethod::kArea ? RESIZE_AREA : RESIZE_SMOOTH;
  return ScaleInPlace(bitmap, width, height, method, flags);
}

Status ResampleInto(BitmapHandle* source, BitmapHandle* destination, uint32_t structSize, ScaleMethod method) noexcept {
  if (!source || !destination || !IsAllocated(*source) || !IsAllocated(*destination)) return ERR_NO_BITMAP;
  if (source->StructSize != sizeof *source || destination->StructSize != sizeof *source || structSize != sizeof *source)
    return ERR_BAD_STRUCT_SIZE;
  const uint32_t flags = method == ScaleMethod::kArea ? RESIZE_AREA : RESIZE_SMOOTH;
  return ScaleInto(*destination, *source, method, flags);
}

}  // namespace
}  // namespace tarn

using namespace tarn;

int32_t T_ResampleBitmap(BitmapHandle* bitmap, int32_t newWidth, int32_t newHeight) noexcept {
  TARN_TRY(RequireAllocatedThenSize(bitmap, ERR_NO_BITMAP));
  return Resample(*bitmap, newWidth, newHeight, ScaleMethod::kArea).code;
}

int32_t T_BicubicResampleBitmap(BitmapHandle* bitmap, int32_t newWidth, int32_t newHeight) noexcept {
  TARN_TRY(RequireAllocatedThenSize(bitmap, ERR_INVALID_PARAMETER));
  return Resample(*bitmap, newWidth, newHeight, ScaleMethod::kSpline).code;
}

int32_t T_ResampleBitmapInt(BitmapHandle* source, BitmapHandle* destination, uint32_t structSize) noexcept {
  return ResampleInto(source, destination, structSize, ScaleMethod::kArea).code;
}

int32_t T_BicubicResampleBitmapInt(BitmapHandle* source, BitmapHandle* destination, uint32_t structSize) noexcept {
  return ResampleInto(source, destination, structSize, ScaleMethod::kSpline).code;
}

int32_t T_StartResizeBitmap(void** state, BitmapHandle* source, int32_t newWidth, int32_t newHeight,
                            uint32_t flags) noexcept {
  if (!state || !source) return ERR_INVALID_PARAMETER;
  TARN_TRY(RequireAllocatedThenSize(source, ERR_NO_BITMAP));
  TARN_TRY(CompleteExtents(source->Width, source->Height, newWidth, newHeight));
  const ScaleMethod method = MethodOf(flags, *source, newWidth, newHeight);
  if (method == ScaleMethod::kNearest || !GeometryHolds(*source)) return ERR_INVALID_PARAMETER;
  const int32_t bits = source->BitsPerPixel;
  uint32_t rowBytes = 0;
  if (!RowBytes(newWidth, bits, rowBytes)) return ERR_IMAGE_TOO_LARGE;
  const Here here = TARN_HERE;
  auto* const made = static_cast<RowState*>(T_LocalAllocInit(1, sizeof(RowState), here.line, here.file));
  if (!made) return ERR_NO_MEMORY;
  made->width = newWidth;
  made->height = newHeight;
  made->bits = bits;
  made->rowBytes = rowBytes;
  const Status filled = FillState(*made, *source, method);
  if (!filled.Ok()) {
    FreeState(made);
    return filled.code;
  }
  *state = made;
  return SUCCESS;
}

int32_t T_GetResizedRowCol(void* state, void* buffer, uint32_t row, uint32_t column, uint64_t bytes) noexcept {
  RowState* const known = StateOf(state);
  if (!known || !buffer) return ERR_INVALID_PARAMETER;
  if (row >= static_cast<uint32_t>(known->height) || column >= static_cast<uint32_t>(known->width))
    return ERR_INVALID_PARAMETER;
  const uint64_t offset = ColumnOffset(known->bits, column);
  if (bytes > known->rowBytes - offset) return ERR_INVALID_PARAMETER;
  TARN_TRY(known->rows->Make(known->line, known->rowBytes, static_cast<int32_t>(row)));
  std::memcpy(buffer, known->line + offset, bytes);
  return SUCCESS;
}

int32_t T_StopResizeBitmap(void* state) noexcept {
  RowState* const known = StateOf(state);
  if (!known) return ERR_INVALID_PARAMETER;
  known->size = 0;
  FreeState(known);
  return SUCCESS;
}
