/// \file
/// Asset references on the command line: `vela resolve`, and FILE arguments that are references.
///
/// The asset manager is the one that OPENASSETIO_DEFAULT_CONFIG names. It is set up for the first
/// argument that is no file, and for nothing else: a command line of files costs nothing.
#pragma once

#include <string>

#include "Failure.h"
#include "Options.h"

namespace command {

/// What a reference stands for: a path, or the reason why there is none.
struct Resolution {
  std::string reference, path;
  Failure failure;

  [[nodiscard]] bool isResolved() const { return !path.empty(); }
};

/// The file that a FILE argument stands for. What exists as a path is that path, also where it
/// looks like a reference; else the manager is asked. What is no reference comes back as it is, for
/// whoever opens it to complain about.
/// \throws Failure for a reference without a file, and for what looks like one where no manager is
///         configured
[[nodiscard]] std::string fileOf(const std::string& argument);

/// Puts files in the place of references, in every option that names a file to read.
/// \throws Failure as fileOf, and (usage) for a reference where a file is to be written
void resolveFiles(RenderOptions& options);
inline void resolveFiles(ViewVerbOptions& options) { resolveFiles(options.render); }
inline void resolveFiles(SubmitOptions& options) { resolveFiles(options.render); }
void resolveFiles(PickOptions& options);
inline void resolveFiles(ExplainOptions& options) { resolveFiles(options.pick); }
void resolveFiles(SelectOptions& options);
void resolveFiles(MakeOptions& options);
// Files of which there may be several are resolved when their turn comes, see forEachFile().
inline void resolveFiles(InfoOptions&) {}
inline void resolveFiles(MeshOptions&) {}
inline void resolveFiles(ChannelsOptions&) {}
inline void resolveFiles(ResolveOptions&) {}
inline void resolveFiles(HelpOptions&) {}
inline void resolveFiles(SelftestOptions&) {}

}  // namespace command
