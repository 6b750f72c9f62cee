#include "PictureFile.h"

#include "Console.h"
#include "Failure.h"

namespace tarn::tool {
namespace {

constexpr int kMaxPages = 65535;  // the library behind counts them in 16 bits

}  // namespace

PictureFile::PictureFile(std::string name, const WriteOptions& writing, const StorageChoice& storage,
                         bool keepsCompression, Console& console)
    : target_(std::move(name)),
      name_(target_ == kStandardStream ? kStandardOutput : target_),
      format_(FormatOf(target_, writing)),
      writing_(writing),
      storage_(storage),
      keepsCompression_(keepsCompression),
      console_(console) {}

WriteOptions PictureFile::OptionsFor(const Picture& read) const {
  WriteOptions options = writing_;
  if (keepsCompression_ && options.compression == TiffCompression::kDefault) options.compression = read.compression;
  return options;
}

/// The metadata of the picture that was read, pixels of the result.
Picture PictureFile::Described(const Picture& read, int32_t width, int32_t height, const Layout& layout) const {
  Picture picture = read;
  picture.width = width;
  picture.height = height;
  picture.bits = layout.bits;
  picture.palette = layout.palette;
  RequireHolds(format_, OptionsFor(read), picture, name_);
  return picture;
}

void PictureFile::Expect(const Picture& read, const Shape& shape) {
  const Picture picture = Described(read, shape.width, shape.height, FileLayout(shape.layout));
  pixelBytes_ += picture.RowBytes() * static_cast<uint64_t>(picture.height);
  ++pages_;
  if (pages_ > 1 && format_ != Format::kTiff) {
    throw Failure(Exit::kDepth, name_, "several pages need a TIFF file; write .tif");
  }
  if (pages_ > kMaxPages) throw Failure(Exit::kDepth, name_, "a TIFF file holds at most 65535 pages");
}

void PictureFile::Create() {
  file_ = std::make_unique<OutputFile>(target_);
  if (pages_ > 1) pageWriter_ = WriteTiffPages(*file_, console_, pixelBytes_, pages_);
}

void PictureFile::Add(const Picture& read, std::unique_ptr<Bitmap> bitmap) {
  const Layout result = LayoutOf(bitmap->Handle());
  const Layout filed = FileLayout(result);
  if (!(filed == result)) {
    console_.Note(name_, NameOf(result) + " is written as " + NameOf(filed));
    Progress progress(console_, name_, static_cast<uint64_t>(bitmap->Handle().Height), "converting");
    bitmap = Converted(*bitmap, filed, PassingStorage(storage_, filed.bits), name_, progress);
  }
  Picture written = Described(read, bitmap->Handle().Width, bitmap->Handle().Height, filed);
  if (!written.profile.empty() && filed.Gray() != LayoutOf(read).Gray()) {
    console_.Note(name_, "the colour profile is left out: it is not one of such pixels");
    written.profile.clear();
  }
  Progress progress(console_, name_, static_cast<uint64_t>(written.height), "writing");
  const WriteOptions options = OptionsFor(read);
  if (pageWriter_) {
    pageWriter_->Add(written, *bitmap, progress, options.compression);
  } else {
    WritePicture(format_, options, written, *bitmap, *file_, console_, progress);
  }
}

void PictureFile::Commit() {
  pageWriter_.reset();
  const std::string bytes = std::to_string(file_->Size()) + " bytes written";
  file_->Commit();
  console_.Note(name_, bytes);
}

std::unique_ptr<OutputFile> PictureFile::Release() {
  pageWriter_.reset();
  file_->Complete();
  return std::move(file_);
}

}  // namespace tarn::tool
