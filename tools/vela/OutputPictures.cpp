#include "OutputPictures.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "Interrupt.h"
#include "Messages.h"
#include "PictureRecord.h"
#include "Suggest.h"
#include "TerminalPicture.h"
#include "Text.h"
#include "vela/picture/Cryptomatte.h"
#include "vela/picture/ExrFile.h"
#include "vela/picture/FileFormat.h"
#include "vela/picture/JpegFile.h"
#include "vela/picture/PngFile.h"
#include "vela/picture/Tiles.h"

namespace command {

namespace {

namespace fs = std::filesystem;

using vela::picture::Behind;
using vela::picture::FileFormat;
using vela::picture::LayerChoice;
using vela::picture::Picture;

constexpr const char* kLayerMark = "{layer}";

bool isPerLayer(const std::string& name) { return name.find(kLayerMark) != std::string::npos; }

std::string nameFor(std::string name, const std::string& layer) {
  for (std::size_t at; (at = name.find(kLayerMark)) != std::string::npos;)
    name.replace(at, std::string(kLayerMark).size(), layer);
  return name;
}

// A name that has no extension because it is none of a regular file: `-`, a device, a pipe.
bool namesNoRegularFile(const std::string& name) {
  struct stat status = {};
  return name == "-" || name.compare(0, 5, "/dev/") == 0 || name.compare(0, 6, "/proc/") == 0 ||
         (stat(name.c_str(), &status) == 0 && !S_ISREG(status.st_mode));
}

bool hasSceneName(const std::string& name) {
  return std::string(vela::picture::fileExtension(name)).rfind(".usd", 0) == 0;
}

// The format that a name stands for. Scenes' names are refused when the file is opened.
FileFormat formatOf(const std::string& option, const std::string& name,
                    const std::optional<FileFormat>& asked, FileFormat otherwise) {
  if (name.empty()) throw failure(Message::noExtension, {option, name});
  const std::optional<FileFormat> named = vela::picture::fileFormat(name);
  if (named) {
    if (option == "--png" && *named != FileFormat::png)
      throw failure(Message::wrongExtension, {option, name, "PNG"});
    return *named;
  }
  const std::string extension(vela::picture::fileExtension(name));
  // What has a scheme is told apart from paths, and refused, later.
  if (hasSceneName(name) || namesNoRegularFile(name) || name.find(':') != std::string::npos)
    return asked.value_or(otherwise);
  if (!extension.empty()) throw failure(Message::unknownExtension, {option, name, extension});
  if (option == "--png") return otherwise;
  if (!asked) throw failure(Message::noExtension, {option, name});
  return *asked;
}

// Rows of the table and groups that a choice has, by the names to choose them by.
std::vector<std::string> namesIn(const LayerChoice& choice) {
  std::vector<std::string> names;
  for (const vela::picture::ChosenLayer& layer : choice.layers) {
    std::string name = layer.name;
    for (const vela::picture::LayerGroup& group : vela::picture::layerGroups())
      if (std::find(group.layers.begin(), group.layers.end(), name) != group.layers.end())
        name = group.name;
    if (names.empty() || names.back() != name) names.push_back(name);
  }
  return names;
}

LayerChoice choose(const std::vector<std::string>& layers) {
  if (layers.empty()) throw failure(Message::noLayers, {vela::picture::layersToTry()});
  std::string why;
  std::optional<LayerChoice> choice = vela::picture::chooseLayers(layers, &why);
  if (choice) return *std::move(choice);
  // The library lists all layers there are; one that is near is likely to be meant.
  const std::string head = "no such layer: ";
  for (const std::string& layer : layers)
    if (const std::string near = attemptAmong(layer, vela::picture::layerNames());
        !near.empty() && why.rfind(head + layer + ";", 0) == 0)
      throw failure(Message::badLayer, {head + layer + "; " + near});
  throw failure(Message::badLayer, {why});
}

// What an image without {layer} in its name shows: colour where it is among the layers, else the
// only one.
std::string layerOfImage(const PictureOutput& output, const RenderOptions& options) {
  if (output.isColour || !options.layersAreGiven) return "rgba";
  const std::vector<std::string> names = namesIn(choose(options.layers));
  if (names.size() == 1) return names.front();
  for (const char* colour : {"rgba", "rgb"})
    if (std::find(names.begin(), names.end(), colour) != names.end()) return colour;
  throw failure(Message::manyLayers, {output.file, std::to_string(names.size())});
}

void readBehind(const std::string& text, RenderOptions& options) {
  if (text == "none") {
    options.files.behind = Behind::nothing;
    return;
  }
  std::vector<double> numbers;
  const bool isColour = readNumbers(text, 3, numbers) &&
                        std::all_of(numbers.begin(), numbers.end(),
                                    [](double number) { return number >= 0.0 && number <= 1.0; });
  if (!isColour)
    throw failure(Message::badForm,
                  {"--background", text, "none or a colour R,G,B from 0 to 1", "0.2,0.2,0.2"});
  options.files.behind = Behind::colour;
  for (std::size_t i = 0; i < 3; ++i) options.files.colour[i] = static_cast<float>(numbers[i]);
}

// The configuration that the environment names, unless a view that needs none is asked for.
std::string configuration(const PictureFileOptions& files) {
  const bool isOurs = files.display.empty() && (files.view == "soft" || files.view == "clip");
  const char* const named = isOurs ? nullptr : std::getenv("OCIO");
  return named ? named : "";
}

// Where a picture may be drawn without being mixed into one that is written there.
std::FILE* streamToShowOn(const RenderOptions& options) {
  const auto outputAt = [&](int descriptor) {
    for (const std::string& name : OutputPictures::namesOf(options))
      if (comesOutOf(descriptor, name)) return name;
    return std::string();
  };
  if (outputAt(STDOUT_FILENO).empty()) return stdout;
  const std::string taken = outputAt(STDERR_FILENO);
  if (taken.empty()) return stderr;
  throw failure(Message::notTogether,
                {"--show", taken, ", which leaves neither standard output nor error for it"});
}

// An image has its format's first and last bytes: one that was cut off lacks the last.
bool beginsAndEndsAs(FileFormat format, const std::string& name, std::string& why) {
  using namespace std::string_literals;
  const bool isPng = format == FileFormat::png;
  const std::string head = isPng ? "\x89PNG\r\n\x1a\n"s : "\xff\xd8\xff"s;
  const std::string tail = isPng ? "IEND\xae\x42\x60\x82"s : "\xff\xd9"s;
  std::ifstream in(name, std::ios::binary);
  std::string first(head.size(), '\0'), last(tail.size(), '\0');
  in.read(first.data(), static_cast<std::streamsize>(first.size()));
  if (first != head) {
    why = isPng ? "it is no PNG file" : "it is no JPEG file";
    return false;
  }
  in.seekg(-static_cast<std::streamoff>(last.size()), std::ios::end);
  in.read(last.data(), static_cast<std::streamsize>(last.size()));
  if (last != tail) why = "its end is missing";
  return last == tail;
}

// What the library writes, under the file's temporary name.
template <class Write>
void writeWhole(const OutputFile& file, const Write& write) {
  std::string why;
  if (!write(file.temporaryName(), &why))
    throw failure(Message::cannotWrite, {file.finalName(), why, "see whether the disk is full"});
  throwIfInterrupted();
}

// Images have no place for what lies beyond the picture's edges.
// \return nothing when there is nothing beyond them
std::optional<Picture> withoutOverscan(const Picture& picture, const PictureWindow& window) {
  const bool isInside = window.x >= 0 && window.y >= 0 &&
                        window.x + picture.width <= window.width &&
                        window.y + picture.height <= window.height;
  if (isInside) return std::nullopt;
  const int x0 = std::max(window.x, 0), y0 = std::max(window.y, 0);
  const int x1 = std::min(window.x + picture.width, window.width);
  const int y1 = std::min(window.y + picture.height, window.height);
  return picture.part(x0 - window.x, y0 - window.y, x1 - x0, y1 - y0);
}

PictureWindow innerWindow(const PictureWindow& window) {
  return {std::max(window.x, 0), std::max(window.y, 0), window.width, window.height};
}

vela::picture::ExrOptions exrOptions(const RenderOptions& options, const PictureWindow& window) {
  vela::picture::ExrOptions exr;
  exr.compression = options.files.compression;
  exr.halfColour = options.files.halfColour;
  exr.x = window.x;
  exr.y = window.y;
  exr.displayWidth = window.width;
  exr.displayHeight = window.height;
  exr.threads = vela::picture::threadCount(options.threads);
  return exr;
}

}  // namespace

void readOutputs(const Arguments& arguments, RenderOptions& options) {
  std::optional<FileFormat> asked;
  if (arguments.has("--format")) {
    asked = vela::picture::fileFormat("picture." + arguments.text("--format"));
    if (!asked)
      throw failure(Message::badWord,
                    {"--format", arguments.text("--format"), "exr, png, jpg", "try --format png"});
  }
  options.layersAreGiven = arguments.has("--layers");
  if (options.layersAreGiven) options.layers = splitList(arguments.text("--layers"));
  for (const std::string& name : arguments.all("--output"))
    options.outputs.push_back({name, formatOf("-o", name, asked, FileFormat::exr), false});
  for (const std::string& name : arguments.all("--png"))
    options.outputs.push_back({name, formatOf("--png", name, asked, FileFormat::png), true});
  options.show = arguments.text("--show");
  if (options.outputs.empty() && options.show.empty()) throw failure(Message::noOutput);

  PictureFileOptions& files = options.files;
  files.halfColour = arguments.has("--half");
  if (arguments.has("--compression")) {
    const std::string& name = arguments.text("--compression");
    const auto compression = vela::picture::findCompression(name);
    if (!compression) {
      std::string all;
      for (const std::string& known : vela::picture::compressionNames())
        all += (all.empty() ? "" : ", ") + known;
      throw failure(Message::badWord, {"--compression", name, all, "try --compression zip"});
    }
    files.compression = *compression;
  }
  files.manifest = arguments.text("--manifest");
  readDisplay(arguments, options);

  // What does not go together, as far as names alone tell.
  for (const PictureOutput& output : options.outputs)
    if (output.format == FileFormat::jpg && files.behind == Behind::nothing)
      throw failure(Message::notTogether,
                    {"--background none", output.file, ", since JPEG has no alpha"});
}

void readDisplay(const Arguments& arguments, RenderOptions& options) {
  PictureFileOptions& files = options.files;
  if (arguments.has("--background")) readBehind(arguments.text("--background"), options);
  if (arguments.has("--exposure")) {
    std::vector<double> stops;
    if (!readNumbers(arguments.text("--exposure"), 1, stops) || std::abs(stops[0]) > 64.0)
      throw failure(Message::badForm,
                    {"--exposure", arguments.text("--exposure"), "a number from -64 to 64", "1.5"});
    files.exposure = stops[0];
  }
  files.view = arguments.text("--view");
  files.display = arguments.text("--display");
}

void checkLayers(const std::vector<std::string>& layers) { (void)choose(layers); }

std::vector<std::string> layersToRender(const RenderOptions& options) {
  std::vector<std::string> layers;
  for (const PictureOutput& output : options.outputs) {
    if (output.format == FileFormat::exr || isPerLayer(output.file))
      layers.insert(layers.end(), options.layers.begin(), options.layers.end());
    else
      layers.push_back(layerOfImage(output, options));
  }
  if (!options.show.empty()) layers.push_back(options.show);
  return layers;
}

vela::picture::DisplayOptions displayOptions(const PictureFileOptions& files) {
  std::string why;
  vela::picture::ViewTransformOptions view{configuration(files), files.view, files.display};
  if (!view.config.empty()) noteInput(view.config);
  const auto made = vela::picture::ViewTransform::make(view, &why);
  if (!made && !view.config.empty()) throw failure(Message::badConfiguration, {view.config, why});
  if (!made) throw failure(Message::badView, {why});
  vela::picture::DisplayOptions display;
  display.view = *made;
  display.exposure = files.exposure;
  display.behind = files.behind;
  display.colour = files.colour;
  return display;
}

OutputPictures::OutputPictures(const RenderOptions& options) : options_(options) {
  const std::vector<std::string> all = namesIn(choose(options.layers));
  bool hasImages = false;
  for (const PictureOutput& output : options.outputs) {
    if (isPerLayer(output.file))
      for (const std::string& layer : all) open(output, nameFor(output.file, layer), {layer});
    else if (output.format == FileFormat::exr)
      open(output, output.file, all);
    else
      open(output, output.file, {layerOfImage(output, options)});
    hasImages = hasImages || output.format != FileFormat::exr;
  }
  if (!options.files.manifest.empty()) {
    const bool hasMattes = std::any_of(all.begin(), all.end(), [](const std::string& layer) {
      return !vela::picture::findLayerInfo(layer);
    });
    if (!hasMattes)
      throw failure(Message::onlyWith, {"--manifest", "--layers crypto_object", "render"});
    manifest_ = std::make_unique<OutputFile>(options.files.manifest, OutputKind::manifest);
  }

  if (!options.show.empty()) {
    (void)choose({options.show});
    (void)streamToShowOn(options);
  }
  if (hasImages || !options.show.empty()) display_ = displayOptions(options.files);
}

std::vector<std::string> OutputPictures::namesOf(const RenderOptions& options) {
  std::vector<std::string> names;
  for (const PictureOutput& output : options.outputs)
    for (const std::string& name : namesOf(output, options)) names.push_back(name);
  if (!options.files.manifest.empty()) names.push_back(options.files.manifest);
  return names;
}

std::vector<std::string> OutputPictures::namesOf(const PictureOutput& output,
                                                 const RenderOptions& options) {
  if (!isPerLayer(output.file)) return {output.file};
  std::vector<std::string> names;
  for (const std::string& layer : namesIn(choose(options.layers)))
    names.push_back(nameFor(output.file, layer));
  return names;
}

std::string OutputPictures::whyNotWhole(const RenderOptions& options) {
  for (const PictureOutput& output : options.outputs)
    for (const std::string& name : namesOf(output, options)) {
      std::string why;
      const bool isWhole = output.format == FileFormat::exr
                               ? vela::picture::isWholeExr(name, &why)
                               : beginsAndEndsAs(output.format, name, why);
      if (!isWhole) return name + ": " + why;
    }
  return "";
}

std::string OutputPictures::findChanged() const {
  for (const File& file : files_)
    if (!options_.like.empty() && file.output->format == FileFormat::exr &&
        hasChanged(file.file->temporaryName(), options_.like))
      return file.file->finalName();
  return "";
}

void OutputPictures::open(const PictureOutput& output, const std::string& name,
                          const std::vector<std::string>& layers) {
  if (output.format == FileFormat::exr) {
    vela::picture::ExrOptions exr;
    exr.compression = options_.files.compression;
    std::vector<std::string> rows;
    for (const vela::picture::ChosenLayer& layer : choose(layers).layers)
      rows.push_back(layer.info->name);
    if (const std::string why = vela::picture::whyNotWritten(rows, exr); !why.empty())
      throw failure(Message::badCompression, {why});
  }
  files_.push_back({&output, layers, std::make_unique<OutputFile>(name)});
}

void OutputPictures::write(const Picture& picture, const PictureWindow& window) {
  if (manifest_) writeManifest(picture);
  for (const File& file : files_)
    if (file.output->format == FileFormat::exr)
      writeExr(file, picture, window);
    else
      writeImage(file, picture, window);
}

// The names of all mattes, whichever files those stand in.
void OutputPictures::writeManifest(const Picture& picture) {
  Picture facts;
  facts.attributes = picture.attributes;
  for (const vela::picture::Layer& layer : picture.layers)
    facts.layers.push_back({layer.name, layer.channels, layer.type, {}, {}});
  const std::string names = takeCryptomatteManifests(facts, "");
  writeWhole(*manifest_, [&](const std::string& to, std::string* why) {
    std::ofstream out(to, std::ios::binary | std::ios::trunc);
    out << names << '\n';
    out.close();
    if (!out) *why = std::strerror(errno);
    return out.good();
  });
}

void OutputPictures::writeExr(const File& file, const Picture& picture,
                              const PictureWindow& window) {
  Picture part = picture;
  choose(file.layers).reduce(part);
  recordLayers(file.layers, part);
  if (manifest_) {
    const fs::path beside = fs::absolute(fs::path(file.file->finalName())).parent_path();
    const fs::path names = fs::absolute(manifest_->finalName()).lexically_proximate(beside);
    (void)takeCryptomatteManifests(part, names.generic_string());
  }
  const vela::picture::ExrOptions exr = exrOptions(options_, window);
  writeWhole(*file.file, [&](const std::string& to, std::string* why) {
    return vela::picture::writeExr(part, to, exr, why);
  });
}

std::string exrBytes(const RenderOptions& options, Picture picture, const PictureWindow& window,
                     bool isRecorded) {
  const std::vector<std::string> layers = namesIn(choose(options.layers));
  choose(layers).reduce(picture);
  if (isRecorded) recordLayers(layers, picture);
  std::vector<unsigned char> bytes;
  std::string why;
  if (!writeExr(picture, bytes, exrOptions(options, window), &why))
    throw failure(Message::cannotWrite, {"the picture", why, ""});
  return {bytes.begin(), bytes.end()};
}

void OutputPictures::writeImage(const File& file, const Picture& picture,
                                const PictureWindow& window) {
  if (const std::optional<Picture> inner = withoutOverscan(picture, window))
    return writeImage(file, *inner, innerWindow(window));
  vela::picture::DisplayOptions display = display_;
  display.y = window.y;
  display.wholeHeight = window.height;
  writeWhole(*file.file, [&](const std::string& to, std::string* why) {
    auto image = displayLayer(picture, file.layers.front(), display, why);
    if (!image) return false;
    return file.output->format == FileFormat::png ? writePng(*image, to, why)
                                                  : writeJpeg(*image, to, why);
  });
}

void OutputPictures::show(const Picture& picture, const PictureWindow& window,
                          const std::string& title) const {
  if (options_.show.empty()) return;
  if (const std::optional<Picture> inner = withoutOverscan(picture, window))
    return show(*inner, innerWindow(window), title);
  vela::picture::DisplayOptions display = display_;
  display.y = window.y;
  display.wholeHeight = window.height;
  std::string why;
  const auto image = displayLayer(picture, options_.show, display, &why);
  if (!image) throw failure(Message::badLayer, {why});
  showPicture(*image, title, streamToShowOn(options_));
}

void OutputPictures::commit() {
  for (const File& file : files_) file.file->commit();
  if (manifest_) manifest_->commit();
}

std::string OutputPictures::names() const {
  std::string all;
  for (const File& file : files_) all += (all.empty() ? "" : ", ") + file.file->finalName();
  return all;
}

}  // namespace command
