// Quarter turns of pictures in files that are larger than what may be in memory. Files are read and written forwards in
// large pieces only: rows of the source, a band at a time, are turned and put down in pieces, those of the same rows of
// the result behind each other in a second file; then the result's rows are put together strip by strip.

#include <atomic>
#include <cstring>

#include "Common/Internal/Rotate.h"
#include "tarn/bitmap.h"

namespace tarn {
namespace {

constexpr int64_t kSide = 64;  // bands and strips have multiples of it

constinit std::atomic<int64_t> turnRoom{int64_t{64} << 20};

/// As many rows as there is room for.
int64_t RowsInRoom(int64_t room, int64_t rowBytes) noexcept {
  const int64_t rows = room / rowBytes / kSide * kSide;
  return rows < kSide ? kSide : rows;
}

class TransposingPieces {
 public:
  TransposingPieces(BitmapHandle& target, BitmapHandle& source, Transposition turn) noexcept
      : from_(source, TARN_HERE),
        to_(target, TARN_HERE),
        turn_(turn),
        width_(source.Width),
        height_(source.Height),
        bits_(source.BitsPerPixel),
        sourceBytes_(source.BytesPerLine),
        targetBytes_(target.BytesPerLine),
        bandRows_(RowsInRoom(turnRoom.load(std::memory_order_relaxed), sourceBytes_)),
        stripRows_(RowsInRoom(turnRoom.load(std::memory_order_relaxed), targetBytes_)),
        bands_((height_ + bandRows_ - 1) / bandRows_),
        strips_((width_ + stripRows_ - 1) / stripRows_),
        pieceStride_(bandRows_ * bits_ / 8) {}
  ~TransposingPieces() { T_FreeBitmap(&pieces_); }
  TransposingPieces(const TransposingPieces&) = delete;
  TransposingPieces& operator=(const TransposingPieces&) = delete;

  /// False when there is no room for the pieces; nothing has happened then.
  bool Open() noexcept {
    const int64_t pieceBytes = stripRows_ * pieceStride_;
    const int64_t count = bands_ * strips_;
    if (pieceBytes > INT32_MAX || count > INT32_MAX) return false;
    const int64_t band = bandRows_ * sourceBytes_, strip = stripRows_ * targetBytes_;
    room_ = TrackedBuffer<uint8_t>(static_cast<uint64_t>(band > strip ? band : strip), TARN_HERE);
    piece_ = TrackedBuffer<uint8_t>::Zeroed(static_cast<uint64_t>(pieceBytes), TARN_HERE);
    return room_ && piece_ && from_.Open().Ok() && to_.Open().Ok() &&
           T_InitBitmap(&pieces_, sizeof pieces_, static_cast<int32_t>(pieceBytes), static_cast<int32_t>(count), 8) ==
               SUCCESS &&
           T_AllocateBitmap(&pieces_, TYPE_DISK) == SUCCESS;
  }

  Status Run(int32_t firstPercent, int32_t lastPercent) noexcept {
    RangeProgress progress(2 * bands_ * strips_, firstPercent, lastPercent);
    for (int64_t band = 0; band < bands_; ++band) {
      TARN_TRY(ReadBand(band));
      for (int64_t strip = 0; strip < strips_; ++strip) {
        const int64_t left = strip * stripRows_;
        TransposeLines(piece_.data(), pieceStride_, room_.data() + left * bits_ / 8, sourceBytes_, RowsOf(strip),
                       LinesOf(band), bits_);
        TARN_TRY(MovePiece(T_PutBitmapRow(&pieces_, piece_.data(), PieceOf(strip, band), pieces_.BytesPerLine),
                           ERR_FILE_WRITE));
        TARN_TRY(progress.Step());
      }
    }
    for (int64_t strip = 0; strip < strips_; ++strip) {
      for (int64_t band = 0; band < bands_; ++band) {
        TARN_TRY(MovePiece(T_GetBitmapRow(&pieces_, piece_.data(), PieceOf(strip, band), pieces_.BytesPerLine),
                           ERR_FILE_READ));
        const auto bytes = static_cast<size_t>((LinesOf(band) * bits_ + 7) / 8);
        uint8_t* const place = room_.data() + band * pieceStride_;
        for (int64_t i = 0; i < RowsOf(strip); ++i)
          std::memcpy(place + i * targetBytes_, piece_.data() + i * pieceStride_, bytes);
        if (band + 1 == bands_) TARN_TRY(WriteStrip(strip));
        TARN_TRY(progress.Step());
      }
    }
    return SUCCESS;
  }

 private:
  [[nodiscard]] uint32_t PieceOf(int64_t strip, int64_t band) const noexcept {
    return static_cast<uint32_t>(strip * bands_ + band);
  }
  [[nodiscard]] int64_t LinesOf(int64_t band) const noexcept {
    const int64_t left = height_ - band * bandRows_;
    return left < bandRows_ ? left : bandRows_;
  }
  [[nodiscard]] int64_t RowsOf(int64_t strip) const noexcept {
    const int64_t left = width_ - strip * stripRows_;
    return left < stripRows_ ? left : stripRows_;
  }
  [[nodiscard]] Status MovePiece(int64_t moved, int32_t shortly) const noexcept {
    if (moved == int64_t{pieces_.BytesPerLine}) return SUCCESS;
    return moved < 0 ? static_cast<int32_t>(moved) : shortly;
  }

  /// Rows of the source in the order of the result's columns; forwards in the file, whichever way they go.
  Status ReadBand(int64_t band) noexcept {
    const int64_t lines = LinesOf(band), top = band * bandRows_;
    for (int64_t i = 0; i < lines; ++i) {
      const int64_t line = turn_.fromLastRow ? lines - 1 - i : i;
      const int64_t row = turn_.fromLastRow ? height_ - 1 - top - line : top + line;
      const uint8_t* const bytes = from_.Row(static_cast<int32_t>(row));
      if (!bytes) return from_.status();
      std::memcpy(room_.data() + line * sourceBytes_, bytes, static_cast<size_t>(sourceBytes_));
    }
    return SUCCESS;
  }

  Status WriteStrip(int64_t strip) noexcept {
    const int64_t rows = RowsOf(strip), left = strip * stripRows_;
    const int64_t used = (height_ * bits_ + 7) / 8;
    for (int64_t i = 0; i < rows; ++i) {
      const int64_t line = turn_.fromLastColumn ? rows - 1 - i : i;
      const int64_t row = turn_.fromLastColumn ? width_ - 1 - left - line : left + line;
      uint8_t* const place = to_.Row(static_cast<int32_t>(row));
      std::memcpy(place, room_.data() + line * targetBytes_, static_cast<size_t>(used));
      std::memset(place + used, 0, static_cast<size_t>(targetBytes_ - used));
      TARN_TRY(to_.Commit());
    }
    return SUCCESS;
  }

  RowReader from_;
  RowWriter to_;
  Transposition turn_;
  int64_t width_;  // of the source
  int64_t height_;
  int32_t bits_;
  int64_t sourceBytes_;  // of a row
  int64_t targetBytes_;
  int64_t bandRows_;   // of the source
  int64_t stripRows_;  // of the result
  int64_t bands_;
  int64_t strips_;
  int64_t pieceStride_;
  BitmapHandle pieces_{};  // a row for each
  TrackedBuffer<uint8_t> room_;
  TrackedBuffer<uint8_t> piece_;
};

}  // namespace

int64_t SetTurnRoom(int64_t bytes) noexcept { return turnRoom.exchange(bytes, std::memory_order_relaxed); }

bool TransposeByPieces(BitmapHandle& target, BitmapHandle& source, Transposition turn, int32_t firstPercent,
                       int32_t lastPercent, Status& status) noexcept {
  constexpr uint32_t kOtherKinds = T_FLAG_COMPRESSED | T_FLAG_TILED | T_FLAG_SUPER_COMPRESSED | T_FLAG_IN_MEMORY;
  const bool files = (source.Flags & T_FLAG_ON_DISK) && !(source.Flags & kOtherKinds) &&
                     (target.Flags & T_FLAG_ON_DISK) && !(target.Flags & kOtherKinds);
  const int64_t bytes = int64_t{target.BytesPerLine} * target.Height;
  if (!files || bytes <= turnRoom.load(std::memory_order_relaxed)) return false;
  TransposingPieces transposing(target, source, turn);
  if (!transposing.Open()) return false;
  status = transposing.Run(firstPercent, lastPercent);
  return true;
}

}  // namespace tarn
