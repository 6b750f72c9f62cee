// tarn scramble: a rectangle of a picture made unreadable, and readable again.

#include <charconv>

#include "Command.h"
#include "View.h"

namespace tarn::tool {
namespace {

bool ParseKey(const std::string& text, uint32_t& key) {
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, key);
  return error == std::errc() && stop == end;
}

class ScrambleCommand final : public PictureCommand {
 public:
  const char* Name() const override { return "scramble"; }
  const char* Help() const override { return "make a picture, or a rectangle of it, unreadable, and restore it"; }

  void AddOwnOptions(Options& options) override {
    options.Text("--key", key_, "N", "0 to 4294967295; the same one restores");
    options.Text("--area", text_, "X,Y,WxH", "the rectangle as the picture is seen, instead of all of it");
    options.Flag("--restore", restore_, "undo what the same key and rectangle did");
  }
  void CheckOwnOptions() const override {
    uint32_t key = 0;
    if (key_.empty()) throw Failure(Exit::kUsage, "", "--key is needed");
    if (!ParseKey(key_, key)) {
      throw Failure(Exit::kUsage, "", "'" + key_ + "' is not a key; write a number of 0 to 4294967295");
    }
    if (!text_.empty()) ParseArea(text_);
  }
  Shape Plan(const Shape& before) override { return before; }

 protected:
  void Apply(std::unique_ptr<Bitmap>& bitmap, Console& console) override {
    BitmapHandle& target = bitmap->Handle();
    Area area{0, 0, target.Width, target.Height};
    if (!text_.empty()) {
      area = StoredArea(ParseArea(text_), target.ViewPerspective, target.Width, target.Height);
    }
    if (area.left < 0 || area.top < 0 || area.left + area.width > target.Width ||
        area.top + area.height > target.Height) {
      throw Failure(Exit::kUsage, Input(), "the rectangle reaches beyond the picture");
    }
    uint32_t key = 0;
    ParseKey(key_, key);
    const LibraryProgress progress(console, Input(), restore_ ? "restoring" : "scrambling");
    Require(T_ScrambleBitmap(&target, static_cast<int32_t>(area.left), static_cast<int32_t>(area.top),
                             static_cast<int32_t>(area.width), static_cast<int32_t>(area.height), key,
                             restore_ ? T_SCRAMBLE_RESTORE : T_SCRAMBLE_SCRAMBLE),
            restore_ ? "restoring" : "scrambling");
  }

 private:
  std::string key_;
  std::string text_;
  bool restore_ = false;
};

}  // namespace

std::unique_ptr<Command> MakeScramble() { return std::make_unique<ScrambleCommand>(); }

}  // namespace tarn::tool
