/// \file
/// Why a part of a scene does not show, or why a call gave up.
#pragma once

#include <cstddef>
#include <string>

namespace vela::scene {

/// One reason, as data: whoever shows it chooses the words around it.
struct Problem {
  /// What it is about, and what `subject` then is.
  enum class Kind {
    none,              ///< no reason
    stopped,           ///< the caller's stop callback said so
    badOption,         ///< subject: the option
    nothingShown,      ///< there is no mesh that the options let through
    tooManyInstances,  ///< more than memory is likely to hold; subject: the instancer
    tooManyFaces,      ///< of refined surfaces; subject: the prim with the most
    noSuchCamera,      ///< subject: the path that was asked for
    unusableCamera,    ///< no picture can be made with it; subject: the camera
    badInstances,      ///< instances of no prototype, or without a position
    notShown,          ///< prims that have a shape but no faces to trace; subject: their type
    notRefined,        ///< a subdivision surface that shows as it is; subject: the prim
    notCast,           ///< entries that the hit detector does not take
    notBound,          ///< material bindings that cannot be read; subject: a collection
    noTexture,         ///< missing, or it cannot be read; subject: the file
    textureReduced,    ///< shown with fewer pixels than it has; subject: the file
    sharedId,          ///< names that mattes cannot tell apart; subject: the matte
    changedLight,      ///< a light that counts otherwise than the scene has it; subject: the light
    noEffect,          ///< an option that changes nothing here; subject: the option
  };
  /// How much it matters.
  enum class Severity {
    note,     ///< something does not show, or shows otherwise
    warning,  ///< something that was meant to count was passed over
    error,    ///< there is no result
  };

  Kind kind = Kind::none;               ///< what it is about
  Severity severity = Severity::error;  ///< how much it matters
  std::string subject;                  ///< a path, or a type name; may be empty
  std::string reason;                   ///< one line without a full stop; may be empty
  std::size_t count = 1;                ///< how many prims, instances or entries this is about
  int levelThatFits = 0;  ///< tooManyFaces: the highest level that would do; 0 when none does

  /// `subject: reason`; one of them alone where the other is empty.
  [[nodiscard]] std::string text() const {
    return subject.empty() || reason.empty() ? subject + reason : subject + ": " + reason;
  }
};

}  // namespace vela::scene
