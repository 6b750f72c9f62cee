// tarn combine: a second picture laid on a picture.

#include "Command.h"
#include "View.h"

namespace tarn::tool {
namespace {

class CombineCommand final : public PictureCommand {
 public:
  const char* Name() const override { return "combine"; }
  const char* Help() const override { return "lay a second picture on a picture, or compute with both"; }

  void AddOwnOptions(Options& options) override {
    options.Argument("second", second_, "FILE", "the second picture");
    options.Choice("--operation", operation_,
                   {{"copy", T_COMBINE_COPY},
                    {"and", T_COMBINE_AND},
                    {"or", T_COMBINE_OR},
                    {"xor", T_COMBINE_XOR},
                    {"add", T_COMBINE_ADD},
                    {"subtract", T_COMBINE_SUBTRACT},
                    {"average", T_COMBINE_AVERAGE},
                    {"minimum", T_COMBINE_MINIMUM},
                    {"maximum", T_COMBINE_MAXIMUM},
                    {"multiply", T_COMBINE_MULTIPLY},
                    {"alpha", T_COMBINE_ALPHA}},
                   "OPERATION",
                   "how: copy (default), and, or, xor, add, subtract, average, minimum, maximum, multiply, alpha");
    options.Text("--at", place_, "X,Y", "where its upper left corner goes, as the picture is seen; 0,0 if not given");
    options.Text("--area", text_, "X,Y,WxH", "a rectangle of the second picture, instead of all of it");
    options.Flag("--invert-second", invertSecond_, "invert the second picture first");
    options.Flag("--invert-first", invertFirst_, "invert what is there first");
    options.Flag("--invert-result", invertResult_, "invert the result");
  }
  void CheckOwnOptions() const override {
    if (!place_.empty()) ParsePlace(place_);
    if (!text_.empty()) ParseArea(text_);
  }
  Shape Plan(const Shape& before) override { return before; }

 protected:
  void Apply(std::unique_ptr<Bitmap>& bitmap, Console& console) override {
    BitmapHandle& target = bitmap->Handle();
    const Loaded loaded = LoadSecond(second_, console, target.ViewPerspective);
    BitmapHandle& source = loaded.bitmap->Handle();
    Area from = text_.empty() ? SeenArea(source.ViewPerspective, source.Width, source.Height) : ParseArea(text_);
    Area to = place_.empty() ? Area{} : ParsePlace(place_);
    to.width = from.width;
    to.height = from.height;
    from = StoredArea(from, source.ViewPerspective, source.Width, source.Height);
    to = StoredArea(to, target.ViewPerspective, target.Width, target.Height);
    if (to.left >= target.Width || to.top >= target.Height || to.left + to.width <= 0 || to.top + to.height <= 0 ||
        from.left >= source.Width || from.top >= source.Height || from.left + from.width <= 0 ||
        from.top + from.height <= 0) {
      return console.Note(Input(), "the pictures do not meet");
    }
    uint32_t flags = operation_;
    if (invertSecond_) flags |= T_COMBINE_INVERT_SOURCE;
    if (invertFirst_) flags |= T_COMBINE_INVERT_DESTINATION;
    if (invertResult_) flags |= T_COMBINE_INVERT_RESULT;
    const LibraryProgress progress(console, Input(), "combining");
    Require(T_CombineBitmapKrn(&target, Near(to.left), Near(to.top), &source, Near(from.left), Near(from.top),
                               Near(to.width), Near(to.height), flags),
            "combining");
  }

 private:
  int32_t Near(int64_t value) const { return Coordinate(value, Input(), "the place"); }

  std::string second_;
  uint32_t operation_ = T_COMBINE_COPY;
  std::string place_;
  std::string text_;
  bool invertSecond_ = false;
  bool invertFirst_ = false;
  bool invertResult_ = false;
};

}  // namespace

std::unique_ptr<Command> MakeCombine() { return std::make_unique<CombineCommand>(); }

}  // namespace tarn::tool
