// tarn reverse: a picture left to right, as it is seen.

#include "Command.h"

namespace tarn::tool {
namespace {

class ReverseCommand final : public PictureCommand {
 public:
  const char* Name() const override { return "reverse"; }
  const char* Help() const override { return "mirror a picture, left to right"; }

  Shape Plan(const Shape& before) override { return before; }

 protected:
  void Apply(std::unique_ptr<Bitmap>& bitmap, Console& console) override {
    const LibraryProgress progress(console, Input(), "mirroring");
    Require(T_ReverseBitmap(&bitmap->Handle()), "mirroring it");
  }
};

}  // namespace

std::unique_ptr<Command> MakeReverse() { return std::make_unique<ReverseCommand>(); }

}  // namespace tarn::tool
