#include "Convert.h"

#include "Failure.h"
#include "Files.h"

namespace tarn::tool {
namespace {

const char* OrderName(const Picture& picture) {
  switch (picture.bits) {
    case 16:
      return "gray samples, low byte first";
    case 24:
      return "blue, green, red";
    case 32:
      return "blue, green, red, opacity";
    case 48:
      return "blue, green, red, 16 bits each, low byte first";
    case 64:
      return "blue, green, red, opacity, 16 bits each, low byte first";
    default:
      return RampOf(picture.palette) == Ramp::kNone ? "palette indices" : "gray ramp";
  }
}

}  // namespace

void Convert(const ConvertRequest& request, Console& console) {
  const Format format = FormatOf(request.output);
  InputFile input(request.input);
  const std::unique_ptr<Reader> reader = OpenPicture(input, console, request.page);
  const Picture& picture = reader->Info();
  console.Note(request.input, picture.container + ", " + picture.depth);
  RequireHolds(format, request.writing, picture, request.output);
  OutputFile output(request.output);  // before the work, so that a place that cannot be written shows at once

  Bitmap bitmap(picture, request.storage, request.input);
  const std::string storage = bitmap.StorageName();
  console.Note(request.input, "stored in " + storage);
  if (request.storage.kind == StorageKind::kTiled && storage.find("tile") == std::string::npos) {
    console.Note(request.input, "the picture is not larger than a tile");
  }
  {
    Progress progress(console, request.input, reader->Steps());
    reader->ReadInto(bitmap, progress);
  }
  {
    Progress progress(console, request.output, static_cast<uint64_t>(picture.height));
    WritePicture(format, request.writing, picture, bitmap, output, console, progress);
  }
  const std::string written = std::to_string(output.Size()) + " bytes written";
  output.Commit();  // nothing after this may fail
  console.Note(request.output, written);
}

std::string Describe(const std::string& input, int page, const StorageChoice& storage, Console& console) {
  InputFile file(input);
  const std::unique_ptr<Reader> reader = OpenPicture(file, console, page);
  const Picture& picture = reader->Info();
  const Bitmap bitmap(picture, storage, input);
  const uint64_t rowBytes = bitmap.BytesPerLine();

  std::string report;
  const auto line = [&](const char* label, const std::string& text) {
    report += std::string("  ") + label + std::string(12 - std::char_traits<char>::length(label), ' ') + text + "\n";
  };
  line("format", picture.container);
  line("size", std::to_string(picture.width) + " x " + std::to_string(picture.height) + " pixels");
  line("depth", picture.depth);
  line("resolution", picture.xDpi == 0 || picture.yDpi == 0
                         ? "not stated"
                         : std::to_string(picture.xDpi) + " x " + std::to_string(picture.yDpi) + " dots per inch");
  if (picture.orientation != 1) line("orientation", std::to_string(picture.orientation));
  if (!picture.profile.empty()) line("profile", "ICC, " + std::to_string(picture.profile.size()) + " bytes");
  line("bitmap", std::to_string(picture.bits) + (picture.bits == 1 ? " bit a pixel, " : " bits a pixel, ") +
                     OrderName(picture) + ", " + std::to_string(rowBytes) + " bytes a row");
  line("memory", std::to_string(rowBytes * static_cast<uint64_t>(picture.height)) + " bytes");
  line("storage", bitmap.StorageName());
  return report;
}

}  // namespace tarn::tool
