/// \file
/// How calls into the library run: which scenes may be used, when the interpreter is let go, on how
/// many threads, and how Ctrl-C reaches them.
#pragma once

#include <nanobind/nanobind.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <string>

#include "Arrays.h"
#include "ovo/Attribute.h"
#include "ovo/Prim.h"
#include "ovo/Stage.h"
#include "vela/scene/Problem.h"
#include "vela/scene/Work.h"

namespace nb = nanobind;

namespace vela::python {

// Scenes. All of this is kept by the interpreter's lock.

/// A stage as Python sees it for the first time: open, whatever its address was used for before.
std::shared_ptr<ovo::Stage> admit(std::shared_ptr<ovo::Stage> stage);
/// From now on every use of the stage and of what is in it is a ValueError.
void closeStage(const ovo::Stage& stage);
[[nodiscard]] bool isClosed(const ovo::Stage& stage);
/// ValueError when the stage was closed, or is missing.
void requireOpen(const ovo::Stage* stage);
inline void requireOpen(const ovo::Stage& stage) { requireOpen(&stage); }
inline void requireOpen(const std::shared_ptr<ovo::Stage>& stage) { requireOpen(stage.get()); }
/// Of a prim or attribute that is not valid nothing is required: it belongs to no scene.
inline void requireOpen(const ovo::Prim& prim) {
  if (prim.getStage()) requireOpen(prim.getStage().get());
}
inline void requireOpen(const ovo::Attribute& attribute) { requireOpen(attribute.prim()); }

/// Before a change: open, and no call that runs without the interpreter reads it. RuntimeError
/// otherwise.
void requireIdle(const ovo::Stage* stage);
inline void requireIdle(const ovo::Prim& prim) {
  if (prim.getStage()) requireIdle(prim.getStage().get());
}
inline void requireIdle(const ovo::Attribute& attribute) { requireIdle(attribute.prim()); }

/// While it lives, the stage is read without the interpreter, and changes are refused. Made and
/// ended with the interpreter's lock.
class StageReader {
 public:
  explicit StageReader(std::shared_ptr<ovo::Stage> stage);
  ~StageReader();
  StageReader(const StageReader&) = delete;
  StageReader& operator=(const StageReader&) = delete;

 private:
  std::shared_ptr<ovo::Stage> stage_;
};

/// What calls of several threads do to one object: any number may read it, or one may change it.
/// Another one at the same time is a RuntimeError. Kept by the interpreter's lock.
class Busy {
 public:
  class Reading {
   public:
    Reading(Busy& busy, const char* what);
    ~Reading() { --busy_.readers_; }
    Reading(const Reading&) = delete;
    Reading& operator=(const Reading&) = delete;

   private:
    Busy& busy_;
  };
  class Changing {
   public:
    Changing(Busy& busy, const char* what);
    ~Changing() { busy_.isChanging_ = false; }
    Changing(const Changing&) = delete;
    Changing& operator=(const Changing&) = delete;

   private:
    Busy& busy_;
  };

 private:
  int readers_ = 0;
  bool isChanging_ = false;
};

/// What is done to the default channel registry, which takes no lock of its own.
Busy& registryUse();

// The interpreter's lock. A thread that asks for it while the interpreter ends is ended by it, in
// the middle of whatever calls it: C++ has no way to bear that. So nothing asks for the lock from
// then on.

/// Without the lock while it lives. Where the interpreter ends meanwhile the thread stops here.
class Unlocked {
 public:
  Unlocked();
  ~Unlocked();
  Unlocked(const Unlocked&) = delete;
  Unlocked& operator=(const Unlocked&) = delete;

 private:
  PyThreadState* state_;
};

/// Within an Unlocked, for a call back into Python: false when the interpreter ends, and then
/// without the lock.
class Locked {
 public:
  Locked();
  ~Locked();
  Locked(const Locked&) = delete;
  Locked& operator=(const Locked&) = delete;
  [[nodiscard]] explicit operator bool() const { return isHeld_; }

 private:
  bool isHeld_ = false;
  PyGILState_STATE state_{};
};

/// True once the interpreter ends: work that nobody waits for any more stops.
[[nodiscard]] bool isEnding();
/// Called once, when the module is made.
void followInterpreter();

// Work

/// Runs `body(first, count)` over [0, size) in pieces, without the interpreter's lock, on as many
/// threads as asked for (0: as many as the machine has). Pieces do not depend on the threads.
/// Small batches run on the caller's thread. What a piece throws comes back.
void inBatches(std::size_t size, int threads,
               const std::function<void(std::size_t first, std::size_t count)>& body);

/// A Work that listens to Ctrl-C and tells a Python callable how far it is. Made, used up and ended
/// by one call; \p progress gets a number from 0 to 1 and may be None. It is called every twentieth
/// of a second, with the same number where nothing was done meanwhile: what it raises ends the
/// work.
class InterruptibleWork {
 public:
  explicit InterruptibleWork(nb::object progress = nb::none());
  [[nodiscard]] const scene::Work& work() const { return work_; }
  /// Throws what stopped the work: KeyboardInterrupt, or what the callable raised.
  void rethrow();

 private:
  bool poll();
  void tell(double share);
  void call(double share);  // with the interpreter's lock

  nb::object progress_;
  scene::Work work_;
  nb::object error_;
  double nextPoll_ = 0.0, nextTell_ = 0.0, share_ = 0.0;
};

// Failures

/// Throws the Python exception that a reason is told by: FileNotFoundError, PermissionError or
/// IsADirectoryError when that is what is wrong with the file, else OSError when the file cannot be
/// used and ValueError for what is no such thing.
[[noreturn]] void refuseFile(const std::string& file, const std::string& reason);
[[noreturn]] void refuse(const std::string& reason);
[[noreturn]] void refuseProblem(const scene::Problem& problem);
/// A warning of the category VelaWarning.
void warn(const std::string& text);

/// A text that was read as `count` of something, checked: IndexError outside [0, count). Negative
/// ones count from the end.
std::size_t indexOf(Py_ssize_t index, std::size_t count, const char* what);

}  // namespace vela::python
