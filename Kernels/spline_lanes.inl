// Splines of sixteen rows side by side: the sweeps go along the rows, a row a lane. For files of an instruction set,
// inside their unnamed namespace; they define Lanes before: sixteen numbers with +, - and *.
//   Lanes FromBytes(const uint8_t*), void ToBytes(uint8_t*, Lanes) of 0..255, truncated, Lanes Load/void Store(float*),
//   Lanes All(float), Lanes Clamped(Lanes), void NextFactor(Lanes right, Places&, Lanes& factor),
//   Lanes ZeroWhere(Lanes right, Lanes value), void StorePlaces(uint8_t*, Places), Lanes FactorsAt(const uint8_t*).

/// The factors of the forward sweep, -1 / (previous + 4) from 0 on: the last one follows itself.
struct SplineFactors {
  alignas(32) float values[8];
  constexpr SplineFactors() noexcept : values{} {
    for (int i = 1; i < 8; ++i) values[i] = -1.0f / (values[i - 1] + 4.0f);
  }
};
constexpr SplineFactors kSplineFactors;
static_assert(-1.0f / (kSplineFactors.values[7] + 4.0f) == kSplineFactors.values[7]);

constexpr int kLaneCount = 16;

/// Sixteen rows of sixteen bytes exchanged with their columns.
void Transpose(__m128i* rows) noexcept {
  __m128i other[kLaneCount];
  __m128i* from = rows;
  __m128i* to = other;
  for (int pass = 0; pass < 4; ++pass) {
    for (int i = 0; i < 8; ++i) {
      to[2 * i] = _mm_unpacklo_epi8(from[i], from[i + 8]);
      to[2 * i + 1] = _mm_unpackhi_epi8(from[i], from[i + 8]);
    }
    __m128i* const last = from;
    from = to;
    to = last;
  }
}

/// Samples i.. of all rows; `count` of them, at most sixteen, are there.
void GatherColumns(uint8_t* columns, const uint8_t* const* rows, int64_t i, int64_t count) noexcept {
  __m128i block[kLaneCount];
  for (int lane = 0; lane < kLaneCount; ++lane) {
    if (count >= kLaneCount) {
      block[lane] = _mm_loadu_si128(reinterpret_cast<const __m128i*>(rows[lane] + i));
    } else {
      block[lane] = _mm_setzero_si128();
      __builtin_memcpy(&block[lane], rows[lane] + i, static_cast<size_t>(count));
    }
  }
  Transpose(block);
  __builtin_memcpy(columns, block, sizeof block);
}

void ScatterColumns(uint8_t* const* rows, const uint8_t* columns, int64_t i, int64_t count) noexcept {
  __m128i block[kLaneCount];
  __builtin_memcpy(block, columns, sizeof block);
  Transpose(block);
  for (int lane = 0; lane < kLaneCount; ++lane) {
    if (count >= kLaneCount)
      _mm_storeu_si128(reinterpret_cast<__m128i*>(rows[lane] + i), block[lane]);
    else
      __builtin_memcpy(rows[lane] + i, &block[lane], static_cast<size_t>(count));
  }
}

/// Bytes of sixteen rows, the places of factors, and second derivatives, sample by sample.
template <int kChannels>
void SplineColumns(uint8_t* const* targets, const uint8_t* y, int64_t pixels, const SplineSpot* spots, int64_t count,
                   uint8_t* places, float* second) noexcept {
  const auto column = [&](int64_t i, int c) { return (i * kChannels + c) * kLaneCount; };
  const Lanes zero = All(0);
  for (int c = 0; c < kChannels; ++c) {
    Store(second + column(0, c), zero);
    Store(second + column(pixels - 1, c), zero);
  }
  Lanes kept[kChannels];
  Places place[kChannels];
  for (int c = 0; c < kChannels; ++c) {
    kept[c] = zero;
    place[c] = Places{};
  }
  const Lanes two = All(2);
  const Lanes six = All(6);
  for (int64_t i = 1; i < pixels - 1; ++i) {
    for (int c = 0; c < kChannels; ++c) {
      const Lanes middle = FromBytes(y + column(i, c));
      const Lanes right = six * (FromBytes(y + column(i - 1, c)) - two * middle + FromBytes(y + column(i + 1, c)));
      Lanes factor;
      NextFactor(right, place[c], factor);
      kept[c] = ZeroWhere(right, (kept[c] - right) * factor);
      Store(second + column(i, c), kept[c]);
      StorePlaces(places + column(i, c), place[c]);
    }
  }
  for (int c = 0; c < kChannels; ++c) kept[c] = zero;
  for (int64_t i = pixels - 2; i > 0; --i) {
    for (int c = 0; c < kChannels; ++c) {
      kept[c] = FactorsAt(places + column(i, c)) * kept[c] + Load(second + column(i, c));
      Store(second + column(i, c), kept[c]);
    }
  }
  const Lanes half = All(0.5f);
  // Blocks of sixteen samples; a pixel may begin one and end in the next.
  alignas(64) uint8_t made[2 * kLaneCount * kLaneCount];
  int64_t stored = 0;
  int64_t in = 0;
  for (int64_t i = 0; i < count; ++i) {
    const SplineSpot spot = spots[i];
    const Lanes t = All(spot.t), rest = All(1.0f - spot.t);
    const Lanes first = All(spot.firstFactor), next = All(spot.nextFactor);
    for (int c = 0; c < kChannels; ++c, ++in) {
      const uint8_t* const from = y + column(spot.from, c);
      const float* const m = second + column(spot.from, c);
      if (spot.t == 0.0f) {
        __builtin_memcpy(made + in * kLaneCount, from, kLaneCount);
        continue;
      }
      constexpr int kNext = kChannels * kLaneCount;
      const Lanes value =
          rest * FromBytes(from) + t * FromBytes(from + kNext) + first * Load(m) + next * Load(m + kNext);
      ToBytes(made + in * kLaneCount, Clamped(value + half));
    }
    if (in < kLaneCount) continue;
    ScatterColumns(targets, made, stored, kLaneCount);
    __builtin_memcpy(made, made + kLaneCount * kLaneCount, kLaneCount * kLaneCount);
    stored += kLaneCount;
    in -= kLaneCount;
  }
  if (in) ScatterColumns(targets, made, stored, in);
}

void SplineRows(uint8_t* const* targets, const uint8_t* const* sources, int64_t pixels, int32_t channels,
                const SplineSpot* spots, int64_t count, uint8_t* work) noexcept {
  const int64_t samples = pixels * channels;
  const int64_t columns = (samples + kLaneCount - 1) / kLaneCount * kLaneCount;
  auto* const second = reinterpret_cast<float*>(work);
  uint8_t* const places = work + samples * kLaneCount * 4;
  uint8_t* const y = places + samples * kLaneCount;
  for (int64_t i = 0; i < columns; i += kLaneCount) GatherColumns(y + i * kLaneCount, sources, i, samples - i);
  if (channels == 1) return SplineColumns<1>(targets, y, pixels, spots, count, places, second);
  if (channels == 3) return SplineColumns<3>(targets, y, pixels, spots, count, places, second);
  SplineColumns<4>(targets, y, pixels, spots, count, places, second);
}
