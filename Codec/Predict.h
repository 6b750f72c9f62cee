#pragma once
// Rows of samples and their differences from what their neighbours let expect.
//
// The gradient prediction of a sample x from its neighbours
//
//     c b        b + a - c, brought between a and b
//     a x
//
// is what a plane through the three says, and the nearer of a and b where there is an edge. Sums wrap modulo 256. In
// the first column a and c are b; above the first row everything is 0.

#include <cstdint>

namespace tarn::codec {

/// The neighbours that the samples of a row are predicted from come from the row above; null: there is none.
/// Eight bits: a row of `bytes` samples in four bands side by side, each with a first column of its own, so that
/// expanding has four independent sums to work on; bytes % 4 samples behind them are predicted from above alone.
void PredictGray(uint8_t* residuals, const uint8_t* row, const uint8_t* above, uint64_t bytes) noexcept;
/// Undoes it; row and residuals may be the same.
void ExpandGray(uint8_t* row, const uint8_t* residuals, const uint8_t* above, uint64_t bytes) noexcept;
void ExpandGray_Portable(uint8_t* row, const uint8_t* residuals, const uint8_t* above, uint64_t bytes) noexcept;

/// 24 bits: three planes, green and the differences of red and blue from it, 128 added.
constexpr int kPlanes = 3;
/// Takes `pixels` pixels of three bytes, the second one green, apart.
void SplitColors(uint8_t* const (&planes)[kPlanes], const uint8_t* row, uint64_t pixels) noexcept;
/// One row of one plane.
void PredictPlane(uint8_t* residuals, const uint8_t* row, const uint8_t* above, uint64_t samples) noexcept;
/// Three rows of residuals to pixels. `above` holds the samples of the row above, four numbers a pixel, and gets those
/// of this row; zeros at first.
void ExpandColors(uint8_t* row, const uint8_t* const (&residuals)[kPlanes], uint16_t* above, uint64_t pixels) noexcept;
void ExpandColors_Portable(uint8_t* row, const uint8_t* const (&residuals)[kPlanes], uint16_t* above,
                           uint64_t pixels) noexcept;

/// Byte (row, column) of `rows` rows of `columns` bytes becomes byte (column, row) of the target. Pages of one bit
/// repeat themselves downwards.
void Transpose(uint8_t* target, const uint8_t* source, uint64_t rows, uint64_t columns) noexcept;

}  // namespace tarn::codec
