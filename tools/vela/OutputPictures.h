/// \file
/// The files that `vela render` writes: which ones the command line asks for, what each of them
/// shows, and all of them whole or none.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Arguments.h"
#include "Options.h"
#include "OutputFile.h"
#include "vela/picture/DisplayImage.h"
#include "vela/picture/LayerChoice.h"
#include "vela/picture/Picture.h"

namespace command {

/// Reads which files to write, and how. \throws Failure (usage) on wrong names and values
void readOutputs(const Arguments& arguments, RenderOptions& options);

/// The part of it that says how colour is shown. \throws Failure (usage) on wrong values
void readDisplay(const Arguments& arguments, RenderOptions& options);

/// How images show colour. \throws Failure when there is no such view
[[nodiscard]] vela::picture::DisplayOptions displayOptions(const PictureFileOptions& files);

/// \throws Failure (usage) for no layers, or such that there are not
void checkLayers(const std::vector<std::string>& layers);

/// The layers that a picture needs for all of its files.
[[nodiscard]] std::vector<std::string> layersToRender(const RenderOptions& options);

/// Where a picture lies in the whole one that it may be a part of.
struct PictureWindow {
  int x = 0, y = 0;           ///< its upper left pixel
  int width = 0, height = 0;  ///< of the whole
};

/// The EXR of a picture in memory: that of a file with the options' layers.
/// \param isRecorded whether recordPicture() has said how it was made
/// \throws Failure
[[nodiscard]] std::string exrBytes(const RenderOptions& options, vela::picture::Picture picture,
                                   const PictureWindow& window, bool isRecorded);

/// The files of one picture. Names and folders are checked, and views of colour made, before the
/// long work; in commit() all files get their names, once all of them are whole.
class OutputPictures {
 public:
  /// \throws Failure when a file cannot be written, or is one that is read
  explicit OutputPictures(const RenderOptions& options);

  /// The final names of the files, without opening any.
  /// \throws Failure (usage) for layers that there are not
  [[nodiscard]] static std::vector<std::string> namesOf(const RenderOptions& options);

  /// Why one of those files is no whole picture, with its name; empty when all of them are.
  [[nodiscard]] static std::string whyNotWhole(const RenderOptions& options);

  /// Writes everything under temporary names.
  /// \param picture has layersToRender(); its attributes stand in every EXR, with the layers of
  ///                that file among its options
  /// \param window  where the picture lies in the whole one, for files that can say so
  /// \throws Failure, Interrupted
  void write(const vela::picture::Picture& picture, const PictureWindow& window);

  /// \throws Failure
  void commit();

  /// Draws the layer that is asked for in the terminal: on standard output, or on standard error
  /// when a picture goes there.
  /// \param title a line above it; none when empty
  /// \throws Failure when nothing of the layer can be shown
  void show(const vela::picture::Picture& picture, const PictureWindow& window,
            const std::string& title) const;

  /// That of the EXRs written which should be the picture that is liked and is not, since the scene
  /// has changed: its final name; empty when there is none.
  [[nodiscard]] std::string findChanged() const;

  /// The final names, as one list for messages.
  [[nodiscard]] std::string names() const;

 private:
  [[nodiscard]] static std::vector<std::string> namesOf(const PictureOutput& output,
                                                        const RenderOptions& options);

  struct File {
    const PictureOutput* output;
    std::vector<std::string> layers;  // of an EXR; the one that an image shows
    std::unique_ptr<OutputFile> file;
  };

  void open(const PictureOutput& output, const std::string& name,
            const std::vector<std::string>& layers);
  void writeManifest(const vela::picture::Picture& picture);
  void writeExr(const File& file, const vela::picture::Picture& picture,
                const PictureWindow& window);
  void writeImage(const File& file, const vela::picture::Picture& picture,
                  const PictureWindow& window);

  const RenderOptions& options_;
  vela::picture::DisplayOptions display_;
  std::vector<File> files_;
  std::unique_ptr<OutputFile> manifest_;
};

}  // namespace command
