// tarn flip: a picture upside down, as it is seen.

#include "Command.h"

namespace tarn::tool {
namespace {

class FlipCommand final : public PictureCommand {
 public:
  const char* Name() const override { return "flip"; }
  const char* Help() const override { return "turn a picture upside down, top to bottom"; }

  Shape Plan(const Shape& before) override { return before; }

 protected:
  void Apply(std::unique_ptr<Bitmap>& bitmap, Console& console) override {
    const LibraryProgress progress(console, Input(), "flipping");
    Require(T_FlipBitmap(&bitmap->Handle()), "flipping it");
  }
};

}  // namespace

std::unique_ptr<Command> MakeFlip() { return std::make_unique<FlipCommand>(); }

}  // namespace tarn::tool
