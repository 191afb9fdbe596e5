// Random streams and sample sets.
#include <string>
#include <vector>

#include "Calls.h"
#include "Module.h"
#include "Records.h"
#include "vela/sampling/SamplingRng.h"

namespace vela::python {

namespace {

using Rng = SamplingRng;

nb::object values(Rng& rng, std::optional<std::size_t> count, const Out<std::int32_t>& out) {
  if (out.isNone()) {
    if (!count) refuse("count: expected a number, or an array as out");
    NewArray<std::int32_t> made(*count);
    rng.newValues(made.data, *count);
    return made.array;
  }
  const auto to = out.open("out");
  if (count && *count != to.size())
    refuse("out: expected " + std::to_string(*count) + " elements, found " +
           std::to_string(to.size()));
  rng.newValues(to.mutableData(), to.size());
  return out.source;
}

}  // namespace

void bindSampling(nb::module_& m) {
  nb::class_<Rng> rng(
      m, "SamplingRng",
      "A reproducible stream of random numbers: it depends on nothing but the seed and the order "
      "of "
      "calls, and is the same on every platform. Integers lie in [1, 2147483646], floats in [0, "
      "1).\n\n"
      ">>> rng = vela.SamplingRng(vela.SamplingRng.hashed_seed(12, 34, 1))\n"
      ">>> first = rng.values(3)\n>>> rng.set_seed(vela.SamplingRng.hashed_seed(12, 34, 1))\n"
      ">>> [rng.value() for _ in range(3)] == first.tolist()\nTrue");
  rng.def(nb::init<int>(), nb::arg("seed") = 27)
      .def("set_seed", &Rng::setSeed, nb::arg("seed"), "Starts the sequence of a seed.")
      .def("reset_to_default", &Rng::resetToDefault, "The same as set_seed(27).")
      .def("value", &Rng::newValue, "The next integer of the sequence.")
      .def("float_value", &Rng::newFloatValue, "The next number as a float in [0, 1).")
      .def("double_value", &Rng::newDoubleValue, "The next number as a double in [0, 1).")
      .def("values", &values, nb::arg("count") = nb::none(), nb::arg("out").none() = nb::none(),
           nb::sig("def values(self, count: int | None = None, out: "
                   "numpy.typing.NDArray[numpy.int32] | None = None) -> "
                   "numpy.typing.NDArray[numpy.int32]"),
           "The next `count` integers, (count,) int32, at twice the rate of single calls; into "
           "`out`, "
           "which is returned, where one is given.\n\n"
           ">>> import numpy\n>>> out = numpy.empty(4, numpy.int32)\n"
           ">>> vela.SamplingRng(1).values(out=out) is out\nTrue")
      .def(
          "float_values",
          [](Rng& r, std::size_t count) {
            NewArray<float> out(count);
            for (std::size_t i = 0; i < count; ++i) out.data[i] = r.newFloatValue();
            return out;
          },
          nb::arg("count"), "The next `count` floats in [0, 1), (count,) float32.")
      .def(
          "double_values",
          [](Rng& r, std::size_t count) {
            NewArray<double> out(count);
            for (std::size_t i = 0; i < count; ++i) out.data[i] = r.newDoubleValue();
            return out;
          },
          nb::arg("count"), "The next `count` doubles in [0, 1), (count,) float64.")
      .def_prop_ro(
          "last_value", [](const Rng& r) { return r.value(); },
          "The last integer, without advancing.")
      .def("scramble_seed", &Rng::scrambleSeed, "A seed for another generator.")
      .def_static(
          "hashed_seed", [](int x) { return Rng::BuildHashedSeed(x); }, nb::arg("a"))
      .def_static(
          "hashed_seed", [](int a, int b, int c) { return Rng::BuildHashedSeed(a, b, c); },
          nb::arg("a"), nb::arg("b"), nb::arg("c"))
      .def_static(
          "hashed_seed",
          [](int a, int b, int c, int d) { return Rng::BuildHashedSeed(a, b, c, d); }, nb::arg("a"),
          nb::arg("b"), nb::arg("c"), nb::arg("d"),
          "A seed that differs in about half its bits for neighbouring arguments.")
      .def_static("make_float", &Rng::MakeFloat, nb::arg("value"), "value / 2^31, below 1.")
      .def_static("make_double", &Rng::MakeDouble, nb::arg("value"), "value / (2^31 - 1), below 1.")
      .def(
          "samples_1d",
          [](Rng& r, int count) {
            std::vector<float> out;
            r.generate1dSamples(count, out);
            return copyOut(out);
          },
          nb::arg("count"), "Stratified samples of [0, 1) in random order, (count,).")
      .def(
          "samples_2d",
          [](Rng& r, int nx, int ny) {
            std::vector<tarn::Vec2f> out;
            r.generate2dSamples(nx, ny, out);
            return copyOut(out);
          },
          nb::arg("nx"), nb::arg("ny"),
          "Multi-jittered samples of [-0.5, 0.5] squared in random order, (nx ny, 2); no rows for "
          "ny "
          "above nx.")
      .def(
          "uniform_samples_2d",
          [](Rng& r, int nx, int ny) {
            std::vector<tarn::Vec2f> out;
            r.generate2dUniformSamples(nx, ny, out);
            return copyOut(out);
          },
          nb::arg("nx"), nb::arg("ny"), "A regular grid over [-0.5, 0.5] squared, (nx ny, 2).")
      // A stream is a plain value: its bytes are its state.
      .def(
          "__getstate__",
          [](const Rng& r) { return nb::bytes(reinterpret_cast<const char*>(&r), sizeof(Rng)); },
          nb::sig("def __getstate__(self) -> bytes"))
      .def("__setstate__",
           [](Rng& r, const nb::bytes& bytes) {
             if (bytes.size() != sizeof(Rng)) refuse("that is no state of a SamplingRng");
             new (&r) Rng();
             std::memcpy(static_cast<void*>(&r), bytes.c_str(), sizeof(Rng));
           })
      .def("__copy__", [](const Rng& r) { return Rng(r); })
      .def(
          "__deepcopy__", [](const Rng& r, nb::handle) { return Rng(r); }, nb::arg("memo"))
      .def(
          "__eq__",
          [](const Rng& a, const Rng& b) { return std::memcmp(&a, &b, sizeof(Rng)) == 0; },
          nb::is_operator())
      .def("__repr__",
           [](const Rng& r) { return "<SamplingRng at " + std::to_string(r.value()) + ">"; });
  rng.attr("__hash__") = nb::none();

  nb::class_<SamplingRngSet> set(m, "SamplingRngSet",
                                 "A row of generators, seeded with 27 until they are reseeded.\n\n"
                                 ">>> threads = vela.SamplingRngSet(4)\n"
                                 ">>> threads[0].set_seed(5); len(threads)\n4");
  // KEEP(rng-set-fixed): the generators lie in one block, and Python objects point into it.
  set.def(nb::init<int>(), nb::arg("count"))
      .def("__len__", &SamplingRngSet::size)
      .def(
          "__getitem__",
          [](SamplingRngSet& s, Py_ssize_t i) -> Rng& {
            return s[static_cast<int>(
                indexOf(i, static_cast<std::size_t>(s.size()), "generators"))];
          },
          nb::arg("index"), nb::rv_policy::reference_internal)
      .def("__repr__", [](const SamplingRngSet& s) {
        return "<SamplingRngSet of " + std::to_string(s.size()) + ">";
      });
  refusePickle(set, "pickle its generators");
}

}  // namespace vela::python
