// tarn: pictures in PNG, JPEG and TIFF files through the library's bitmaps.

#include <CLI/CLI.hpp>
#include <cctype>
#include <cstdio>
#include <map>
#include <new>

#include "Console.h"
#include "Convert.h"
#include "Failure.h"
#include "Files.h"

namespace tarn::tool {
namespace {

/// "64K" -> 65536. Suffixes K, M and G, either case, count in 1024s.
uint64_t ParseSize(const std::string& text) {
  const auto refuse = [&]() -> uint64_t {
    throw CLI::ValidationError("'" + text + "' is not a size; write bytes, or a number with K, M or G");
  };
  uint64_t value = 0;
  size_t at = 0;
  for (; at < text.size() && std::isdigit(static_cast<unsigned char>(text[at])); ++at) {
    if (value > (uint64_t{1} << 56)) return refuse();
    value = value * 10 + static_cast<uint64_t>(text[at] - '0');
  }
  if (at == 0 || text.size() > at + 1) return refuse();
  if (at < text.size()) {
    const size_t power = std::string("KMG").find(static_cast<char>(std::toupper(static_cast<unsigned char>(text[at]))));
    if (power == std::string::npos || value >> (54 - 10 * power) != 0) return refuse();
    value <<= 10 * (power + 1);
  }
  return value == 0 ? refuse() : value;
}

void AddSize(CLI::App& command, const char* name, uint64_t& target, const char* help) {
  command
      .add_option_function<std::string>(
          name, [&target](const std::string& text) { target = ParseSize(text); }, help)
      ->type_name("N");
}

std::string VersionText() {
  T_Version version{};
  if (T_VersionInfo(&version, sizeof version) != SUCCESS) return "tarn";
  return "tarn (" + std::string(version.Product) + " " + std::to_string(version.MajorNumber) + "." +
         std::to_string(version.MinorNumber) + ")";
}

int Report(Console& console, const Failure& failure) {
  console.Error(failure.File(), failure.what());
  return static_cast<int>(failure.ExitCode());
}

/// Runs a step and turns whatever it throws into one line and an exit code.
template <class Step>
int Attempt(Console& console, const std::string& file, const Step& step) {
  try {
    step();
    return static_cast<int>(Exit::kOk);
  } catch (const Failure& failure) {
    return Report(console, failure);
  } catch (const std::bad_alloc&) {
    return Report(console, Failure(Exit::kMemory, file, "no memory"));
  } catch (const std::length_error&) {
    return Report(console, Failure(Exit::kMemory, file, "no memory"));
  } catch (const std::exception& error) {
    return Report(console, Failure(Exit::kInternal, file, error.what()));
  }
}

struct Arguments {
  bool verbose = false;
  bool quiet = false;
  int page = 0;
  StorageChoice storage;
  std::vector<std::string> files;
  ConvertRequest convert;
};

int Info(const Arguments& arguments, Console& console) {
  int result = 0;
  bool first = true;
  for (const std::string& file : arguments.files) {
    std::string report;
    const int ended = Attempt(console, file, [&] {
      report = Describe(file, arguments.page, arguments.storage, console);
      if (!first) std::fputs("\n", stdout);
      first = false;
      std::printf("%s\n%s", file.c_str(), report.c_str());
    });
    if (result == 0) result = ended;
  }
  if (std::fflush(stdout) != 0 || std::ferror(stdout)) {
    return Report(console, Failure(Exit::kOutput, "standard output", "cannot write"));
  }
  return result;
}

void CheckOptionsFit(const Arguments& arguments, bool qualityGiven) {
  const StorageChoice& storage = arguments.storage;
  const bool tiles = storage.kind == StorageKind::kAuto || storage.kind == StorageKind::kTiled;
  if (storage.tileBytes != 0 && !tiles) throw Failure(Exit::kUsage, "", "--tile-size goes with auto or tiled storage");
  if (storage.maxMemory != 0 && storage.kind != StorageKind::kAuto) {
    throw Failure(Exit::kUsage, "", "--max-memory goes with auto storage");
  }
  if (storage.maxMemory != 0 && storage.tileBytes > storage.maxMemory) {
    throw Failure(Exit::kUsage, "", "--tile-size is larger than --max-memory");
  }
  if (arguments.convert.output.empty()) return;
  const Format format = FormatOf(arguments.convert.output);
  if (qualityGiven && format != Format::kJpeg) throw Failure(Exit::kUsage, "", "--quality goes with JPEG output");
  if (arguments.convert.writing.compression != TiffCompression::kDefault && format != Format::kTiff) {
    throw Failure(Exit::kUsage, "", "--compression goes with TIFF output");
  }
}

int Run(int argc, char** argv) {
  Arguments arguments;
  CLI::App app("Pictures in PNG, JPEG and TIFF files: what they are, and conversion between the formats.", "tarn");
  app.set_version_flag("--version", VersionText());
  app.require_subcommand(1);

  const auto common = [&](CLI::App& command) {
    command.add_option("--page", arguments.page, "page of a TIFF file with several, counted from 1")
        ->check(CLI::Range(1, 65535))
        ->type_name("N");
    AddSize(command, "--tile-size", arguments.storage.tileBytes, "bytes a tile; K, M and G count in 1024s");
    AddSize(command, "--max-memory", arguments.storage.maxMemory,
            "bytes of pixels kept in memory; what is more goes to temporary files");
    auto* verbose = command.add_flag("--verbose,-v", arguments.verbose, "tell about storage and decoder warnings");
    command.add_flag("--quiet,-q", arguments.quiet, "no progress bar on a terminal")->excludes(verbose);
  };

  CLI::App& info = *app.add_subcommand("info", "tell what files hold, and what they become in memory");
  info.add_option("files", arguments.files, "PNG, JPEG or TIFF files")->required()->type_name("FILE");
  common(info);

  CLI::App& convert = *app.add_subcommand("convert", "write a picture in another format");
  convert.add_option("in", arguments.convert.input, "PNG, JPEG or TIFF file, recognised by its content")
      ->required()
      ->type_name("IN");
  convert.add_option("out", arguments.convert.output, "file to write; .png, .jpg or .tif")
      ->required()
      ->type_name("OUT");
  static const std::map<std::string, StorageKind> kKinds = {{"auto", StorageKind::kAuto},
                                                            {"memory", StorageKind::kMemory},
                                                            {"tiled", StorageKind::kTiled},
                                                            {"disk", StorageKind::kDisk},
                                                            {"compressed", StorageKind::kCompressed}};
  convert.add_option("--storage", arguments.storage.kind, "auto, memory, tiled, disk or compressed (1-bit pictures)")
      ->transform(CLI::CheckedTransformer(kKinds).description(""))
      ->type_name("KIND");
  static const std::map<std::string, TiffCompression> kCompressions = {{"none", TiffCompression::kNone},
                                                                       {"lzw", TiffCompression::kLzw},
                                                                       {"deflate", TiffCompression::kDeflate},
                                                                       {"packbits", TiffCompression::kPackBits},
                                                                       {"g4", TiffCompression::kG4}};
  convert
      .add_option("--compression", arguments.convert.writing.compression,
                  "of TIFF: none, lzw, deflate, packbits or g4 (1-bit pictures); G4 for black and white, else Deflate")
      ->transform(CLI::CheckedTransformer(kCompressions).description(""))
      ->type_name("SCHEME");
  const CLI::Option* quality =
      convert.add_option("--quality", arguments.convert.writing.jpegQuality, "of JPEG, 1 to 100")
          ->check(CLI::Range(1, 100))
          ->type_name("N")
          ->capture_default_str();
  common(convert);

  try {
    app.parse(argc, argv);
  } catch (const CLI::Success& help) {
    return app.exit(help);
  } catch (const CLI::ParseError& error) {
    Console(false, true).Error("", std::string(error.what()) + " (tarn --help tells more)");
    return static_cast<int>(Exit::kUsage);
  }

  Console console(arguments.verbose, arguments.quiet);
  InstallSignalCleanup();
  const int fit = Attempt(console, "", [&] { CheckOptionsFit(arguments, quality->count() > 0); });
  if (fit != 0) return fit;
  if (info.parsed()) return Info(arguments, console);
  arguments.convert.page = arguments.page;
  arguments.convert.storage = arguments.storage;
  return Attempt(console, arguments.convert.input, [&] { Convert(arguments.convert, console); });
}

}  // namespace
}  // namespace tarn::tool

int main(int argc, char** argv) {
  try {
    return tarn::tool::Run(argc, argv);
  } catch (const std::bad_alloc&) {
    std::fputs("tarn: no memory\n", stderr);
    return static_cast<int>(tarn::tool::Exit::kMemory);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "tarn: %s\n", error.what());
    return static_cast<int>(tarn::tool::Exit::kInternal);
  }
}
