#include "Calls.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <exception>
#include <mutex>
#include <thread>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace vela::python {

namespace {

// By address: entries go when a stage of that address is made, so that none is taken for another.
std::unordered_set<const ovo::Stage*>& closedStages() {
  static auto* const stages = new std::unordered_set<const ovo::Stage*>;
  return *stages;
}
std::unordered_map<const ovo::Stage*, int>& stageReaders() {
  static auto* const readers = new std::unordered_map<const ovo::Stage*, int>;
  return *readers;
}

double now() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

[[noreturn]] void raise(PyObject* type, const std::string& text) {
  PyErr_SetString(type, text.c_str());
  throw nb::python_error();
}

}  // namespace

std::shared_ptr<ovo::Stage> admit(std::shared_ptr<ovo::Stage> stage) {
  closedStages().erase(stage.get());
  return stage;
}

void closeStage(const ovo::Stage& stage) {
  requireIdle(&stage);
  closedStages().insert(&stage);
}

bool isClosed(const ovo::Stage& stage) { return closedStages().count(&stage) != 0; }

void requireOpen(const ovo::Stage* stage) {
  if (!stage) throw nb::value_error("there is no stage");
  if (!closedStages().empty() && isClosed(*stage)) throw nb::value_error("the stage is closed");
}

void requireIdle(const ovo::Stage* stage) {
  requireOpen(stage);
  if (!stageReaders().empty() && stageReaders().count(stage) != 0)
    raise(PyExc_RuntimeError, "the stage cannot change while another call reads it");
}

StageReader::StageReader(std::shared_ptr<ovo::Stage> stage) : stage_(std::move(stage)) {
  requireOpen(stage_.get());
  ++stageReaders()[stage_.get()];
}
StageReader::~StageReader() {
  // A child that was forked meanwhile knows of no readers.
  const auto found = stageReaders().find(stage_.get());
  if (found != stageReaders().end() && --found->second == 0) stageReaders().erase(found);
}

Busy::Reading::Reading(Busy& busy, const char* what) : busy_(busy) {
  if (busy.isChanging_)
    raise(PyExc_RuntimeError, std::string(what) + " is being changed by another call");
  ++busy.readers_;
}
Busy::Changing::Changing(Busy& busy, const char* what) : busy_(busy) {
  if (busy.isChanging_ || busy.readers_ != 0)
    raise(PyExc_RuntimeError, std::string(what) + " is in use by another call");
  busy.isChanging_ = true;
}

// How the interpreter's end is told to threads: those that are about to take the lock are counted,
// and the handler below lets them in before it goes on.
namespace {
std::atomic<bool> ending{false};
std::atomic<int> arriving{0};
std::thread::id endingThread;

bool mustStay() { return ending && std::this_thread::get_id() != endingThread; }

// For a thread whose interpreter is gone: it has nothing to go back to.
[[noreturn]] void stayForever() {
  for (;;) ::pause();
}

void endInterpreter() {
  endingThread = std::this_thread::get_id();
  ending = true;
  // Bounded, since a callback may never come back.
  for (int i = 0; arriving > 0 && i < 5000; ++i) {
    PyThreadState* const state = PyEval_SaveThread();
    ::usleep(1000);
    PyEval_RestoreThread(state);
  }
}

// What other threads were about to do does not go on in a child.
void startChild() {
  arriving = 0;
  stageReaders().clear();
}
}  // namespace

bool isEnding() { return mustStay(); }

void followInterpreter() {
  nb::module_::import_("atexit").attr("register")(nb::cpp_function([] { endInterpreter(); }));
  nb::module_::import_("os").attr("register_at_fork")(nb::arg("after_in_child") =
                                                          nb::cpp_function([] { startChild(); }));
}

Unlocked::Unlocked() : state_(PyEval_SaveThread()) {
  if (mustStay()) stayForever();
}
Unlocked::~Unlocked() {
  ++arriving;
  if (mustStay()) {
    --arriving;
    stayForever();
  }
  PyEval_RestoreThread(state_);
  --arriving;
}

Locked::Locked() {
  ++arriving;
  if (mustStay()) {
    --arriving;
    return;
  }
  state_ = PyGILState_Ensure();
  isHeld_ = true;
}
Locked::~Locked() {
  if (!isHeld_) return;
  PyGILState_Release(state_);
  --arriving;
}

Busy& registryUse() {
  static auto* const use = new Busy;
  return *use;
}

void inBatches(std::size_t size, int threads,
               const std::function<void(std::size_t first, std::size_t count)>& body) {
  if (threads < 0) throw nb::value_error("threads: expected 0 or more");
  // Few enough for every thread to find work, large enough to be worth a turn.
  constexpr std::size_t kPiece = 4096;
  const std::size_t pieces = (size + kPiece - 1) / kPiece;
  // Letting the lock go costs more than a few rays.
  if (size < 64) {
    if (size != 0) body(0, size);
    return;
  }
  const Unlocked unlocked;
  std::size_t wanted = threads == 0 ? std::max(1u, std::thread::hardware_concurrency())
                                    : static_cast<std::size_t>(threads);
  wanted = std::min(wanted, pieces);
  std::atomic<std::size_t> next{0};
  std::exception_ptr failure;
  std::mutex failureMutex;
  const auto run = [&] {
    try {
      for (std::size_t piece = next++; piece < pieces; piece = next++)
        body(piece * kPiece, std::min(kPiece, size - piece * kPiece));
    } catch (...) {
      const std::lock_guard<std::mutex> lock(failureMutex);
      if (!failure) failure = std::current_exception();
      next = pieces;
    }
  };
  std::vector<std::thread> helpers;
  try {
    while (helpers.size() + 1 < wanted) helpers.emplace_back(run);
  } catch (const std::exception&) {
    // Fewer threads do all the work.
  }
  run();
  for (std::thread& helper : helpers) helper.join();
  if (failure) std::rethrow_exception(failure);
}

InterruptibleWork::InterruptibleWork(nb::object progress) : progress_(std::move(progress)) {
  work_.stop = [this] { return poll(); };
  if (!progress_.is_none()) work_.progress = [this](double share) { tell(share); };
}

bool InterruptibleWork::poll() {
  if (error_.is_valid()) return true;
  // The library asks far more often than anybody can press keys.
  const double time = now();
  if (time < nextPoll_) return false;
  nextPoll_ = time + 0.02;
  const Locked locked;
  if (!locked) return true;
  if (PyErr_CheckSignals() == 0) {
    // A callable may want to end the call by what it raises, which cannot wait for the next step.
    if (!progress_.is_none() && time >= nextTell_) call(share_);
    return error_.is_valid();
  }
  PyObject *type = nullptr, *value = nullptr, *trace = nullptr;
  PyErr_Fetch(&type, &value, &trace);
  PyErr_NormalizeException(&type, &value, &trace);
  error_ = nb::steal(value);
  Py_XDECREF(type);
  Py_XDECREF(trace);
  return true;
}

void InterruptibleWork::tell(double share) {
  share_ = share;
  if (error_.is_valid() || (now() < nextTell_ && share < 1.0)) return;
  const Locked locked;
  if (locked) call(share);
}

void InterruptibleWork::call(double share) {
  nextTell_ = now() + 0.05;
  try {
    progress_(share);
  } catch (nb::python_error& error) {
    error_ = nb::borrow(error.value());
  }
}

void InterruptibleWork::rethrow() {
  if (!error_.is_valid()) return;
  PyErr_SetObject(reinterpret_cast<PyObject*>(Py_TYPE(error_.ptr())), error_.ptr());
  throw nb::python_error();
}

void refuseFile(const std::string& file, const std::string& reason) {
  // The reason begins with the file's name where it comes from the scene library.
  struct stat status {};
  int code = 0;
  if (::stat(file.c_str(), &status) != 0)
    code = errno;
  else if (S_ISDIR(status.st_mode))
    code = EISDIR;
  else if (::access(file.c_str(), R_OK) != 0)
    code = errno;
  if (code == 0) raise(PyExc_ValueError, reason);
  // OSError makes itself the kind that the code stands for.
  const nb::object error = nb::borrow(PyExc_OSError)(code, reason, file);
  PyErr_SetObject(reinterpret_cast<PyObject*>(Py_TYPE(error.ptr())), error.ptr());
  throw nb::python_error();
}

void refuse(const std::string& reason) { raise(PyExc_ValueError, reason); }

void refuseProblem(const scene::Problem& problem) {
  const bool isMemory = problem.kind == scene::Problem::Kind::tooManyFaces ||
                        problem.kind == scene::Problem::Kind::tooManyInstances;
  const bool isKey = problem.kind == scene::Problem::Kind::noSuchCamera;
  raise(isMemory ? PyExc_MemoryError
        : isKey  ? PyExc_LookupError
                 : PyExc_ValueError,
        problem.text());
}

void warn(const std::string& text) {
  static nb::object* const category =
      new nb::object(nb::module_::import_("vela._warnings").attr("VelaWarning"));
  if (PyErr_WarnEx(category->ptr(), text.c_str(), 1) != 0) throw nb::python_error();
}

std::size_t indexOf(Py_ssize_t index, std::size_t count, const char* what) {
  const Py_ssize_t size = static_cast<Py_ssize_t>(count);
  if (index < 0) index += size;
  if (index < 0 || index >= size)
    raise(PyExc_IndexError, std::string(what) + ": the index is out of range");
  return static_cast<std::size_t>(index);
}

}  // namespace vela::python
