#pragma once
// Bitmaps into one file: brought into a layout that files have, checked before any work, written whole or not at all.

#include <memory>
#include <string>

#include "Files.h"
#include "Layout.h"
#include "Picture.h"

namespace tarn::tool {

/// What a bitmap is, or will be. Sides are those of the rows as they are stored, 0 when only the work can tell them.
struct Shape {
  int32_t width = 0;
  int32_t height = 0;
  Layout layout;
  uint32_t orientation = 1;  // view perspective
};

/// Calls come in this order: Expect for every page, Create, Add for every page, Commit. All throw Failure.
class PictureFile {
 public:
  /// @param storage of bitmaps that are made on the way
  /// @param keepsCompression TIFF pages are compressed as they were, unless the options say how
  PictureFile(std::string name, const WriteOptions& writing, const StorageChoice& storage, bool keepsCompression,
              Console& console);

  /// Refuses what the file cannot hold.
  /// @param read what the file said that the picture comes from; its metadata goes into this one
  void Expect(const Picture& read, const Shape& shape);
  void Create();
  void Add(const Picture& read, std::unique_ptr<Bitmap> bitmap);
  /// Nothing after this may fail.
  void Commit();
  /// Instead of Commit: the file with all that belongs into it, not yet on the medium and without its name.
  std::unique_ptr<OutputFile> Release();

 private:
  Picture Described(const Picture& read, int32_t width, int32_t height, const Layout& layout) const;
  WriteOptions OptionsFor(const Picture& read) const;

  std::string target_;
  std::string name_;  // as the user is told
  Format format_;
  WriteOptions writing_;
  StorageChoice storage_;
  bool keepsCompression_;
  Console& console_;
  int pages_ = 0;
  uint64_t pixelBytes_ = 0;
  std::unique_ptr<OutputFile> file_;
  std::unique_ptr<PageWriter> pageWriter_;  // of several pages
};

}  // namespace tarn::tool
