// Selections of objects, faces and points, and their text form.
#include <algorithm>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "Calls.h"
#include "Module.h"
#include "Records.h"
#include "vela/selection/GeoSelection.h"

namespace vela::python {

namespace {

using namespace vela::Selection;

std::vector<ovo::Path> pathsOf(const GeoSelection& selection) {
  std::vector<ovo::Path> paths;
  for (const auto& [path, object] : selection) paths.push_back(path);
  std::sort(paths.begin(), paths.end());
  return paths;
}

std::string textOf(const GeoSelection& selection) {
  std::ostringstream out;
  out << selection;
  return out.str();
}

bool isEqual(const GeoSelection& a, const GeoSelection& b) {
  if (a.size() != b.size()) return false;
  for (const auto& [path, object] : a) {
    const auto found = b.find(path);
    if (found == b.end() || found->second.objectSelected != object.objectSelected ||
        found->second.parts != object.parts)
      return false;
  }
  return true;
}

}  // namespace

void bindSelection(nb::module_& m) {
  nb::enum_<PartType>(m, "PartType",
                      "The parts of an object that are selected one by one.\n\n"
                      ">>> vela.selection.PartType.FACES.value\n1")
      .value("VERTICES", vertices)
      .value("FACES", faces);
  nb::enum_<PrimSelectionStatus>(m, "PrimSelectionStatus",
                                 "How a prim stands to the selected objects.\n\n"
                                 ">>> vela.selection.PrimSelectionStatus.SELECTED.value\n1")
      .value("NOT_SELECTED", notSelected)
      .value("SELECTED", selected)
      .value("DESCENDANT", descendant);
  using W = WeightedPartSelection;
  {
    Record<W> r(
        m, "WeightedPartSelection",
        "Values on the vertices, or on the faces, of one object. Arrays are copies; assigning "
        "replaces them.\n\n"
        ">>> part = vela.selection.WeightedPartSelection(selections=[0, 1], weights=[0, 0.5])\n"
        ">>> part.add(part)\n>>> part.selections.tolist()\n[0.0, 2.0]");
    r.list("selections", &W::selections, "(n,).").list("weights", &W::weights, "(n,).");
    r.type()
        .def("__len__", &W::size)
        .def("resize", &W::resize, nb::arg("n"), "Both arrays to n values; new ones are 0.")
        .def("clear", &W::clear, "Both arrays to none.")
        .def("clear_selections", &W::clearSelections, "Every selection to 0.")
        .def("clear_weights", &W::clearWeights, "Every weight to 0.")
        .def("add", &W::add, nb::arg("other"), "Adds the other's values, growing both arrays.");
  }
  using S = GeoSelection;
  nb::class_<S> selection(
      m, "GeoSelection",
      "Objects by path, each with its selection, and the status of the prims below them.\n\n"
      ">>> from vela.selection import GeoSelection, PartType\n"
      ">>> chosen = GeoSelection()\n>>> chosen.set_object_selected('/World/Bowl', True)\n"
      ">>> chosen.set_part('/World/Vase', PartType.FACES, [0, 0, 1])\n"
      ">>> again = GeoSelection.from_text(str(chosen))\n"
      ">>> again == chosen, again.paths(), '/World/Bowl' in again\n"
      "(True, [Path('/World/Bowl'), Path('/World/Vase')], True)");
  selection.def(nb::init<>())
      .def_static(
          "from_text",
          [](const std::string& text) {
            S out;
            std::istringstream in(text);
            std::string why;
            if (!out.deserialize(in, &why)) refuse(why);
            return out;
          },
          nb::arg("text"), "The selection that a text describes; ValueError with the reason.")
      .def_static(
          "load",
          [](const FileName& file) {
            const nb::object text = nb::module_::import_("pathlib")
                                        .attr("Path")(nb::str(textOut(file.text)))
                                        .attr("read_text")();
            S out;
            std::istringstream in(nb::cast<std::string>(text));
            std::string why;
            if (!out.deserialize(in, &why)) refuse(file.text + ": " + why);
            return out;
          },
          nb::arg("file"), "Reads a file; OSError, or ValueError with the reason.")
      .def(
          "save",
          [](const S& s, const FileName& file) {
            nb::module_::import_("pathlib")
                .attr("Path")(nb::str(textOut(file.text)))
                .attr("write_text")(textOut(textOf(s)));
          },
          nb::arg("file"), "Writes the text form into a file; OSError.")
      .def("__str__", [](const S& s) { return textOut(textOf(s)); })
      .def("__len__", &S::size)
      .def(
          "__contains__",
          [](const S& s, nb::handle path) {
            ovo::Path known;
            return nb::try_cast(path, known) && s.isPathPresent(known);
          },
          nb::arg().none(), nb::sig("def __contains__(self, path: object, /) -> bool"))
      .def(
          "__iter__", [](const S& s) { return nb::iter(nb::cast(pathsOf(s))); },
          nb::sig("def __iter__(self) -> typing.Iterator[vela._path.Path]"))
      .def("paths", &pathsOf, "The paths of all entries, in order.")
      .def("is_object_selected", &S::isObjectSelected, nb::arg("path"),
           "Whether a whole object is selected.")
      .def("set_object_selected", &S::setObjectSelected, nb::arg("path"), nb::arg("selected"),
           "Selects or deselects a whole object.")
      .def(
          "part",
          [](const S& s, const ovo::Path& path, PartType type) -> W {
            const auto found = s.find(path);
            return found == s.end() ? W() : found->second.getPartSelection(type);
          },
          nb::arg("path"), nb::arg("type"), "A copy of one part; empty without an entry.")
      .def(
          "set_part",
          [](S& s, const ovo::Path& path, PartType type, const In<float>& selections,
             const std::optional<In<float>>& weights) {
            W part;
            part.selections = selections.read("selections").vector();
            if (weights)
              part.weights = weights->read("weights").vector();
            else
              part.weights.resize(part.selections.size());
            s.getWritablePartSelection(path, type) = part;
          },
          nb::arg("path"), nb::arg("type"), nb::arg("selections"), nb::arg("weights") = nb::none(),
          "Replaces one part by values (n,); makes the entry.")
      .def("add_selection", &S::addSelection, nb::arg("other"),
           "Joins the other selection to this one.")
      .def("deselect", &S::deselect, nb::arg("type"), "Empties one part of every entry.")
      .def("delete_empty", &S::deleteEmpty, "Removes the entries that are empty.")
      .def("clear_values_only", &S::clearValuesOnly, "Empties every entry but keeps it.")
      .def("clear", &S::clear, "Removes every entry.")
      .def(
          "update_prim_selection_status",
          [](S& s, const std::shared_ptr<ovo::Stage>& stage) {
            requireOpen(stage);
            s.updatePrimSelectionStatus(stage);
          },
          nb::arg("stage"), "Brings the status of prims up to date.")
      .def(
          "prim_selection_status",
          [](const S& s, const ovo::Path& path) { return s.getPrimSelectionStatus(path); },
          nb::arg("path"), "NOT_SELECTED while the status is out of date.")
      .def(
          "prim_selection_statuses",
          [](const S& s) {
            std::map<ovo::Path, PrimSelectionStatus> sorted(s.getPrimSelectionStatus().begin(),
                                                            s.getPrimSelectionStatus().end());
            nb::dict out;
            for (const auto& [path, status] : sorted) out[nb::cast(path)] = nb::cast(status);
            return out;
          },
          nb::sig(
              "def prim_selection_statuses(self) -> dict[vela._path.Path, PrimSelectionStatus]"),
          "Every prim that is selected or below a selected one.")
      .def_prop_ro("is_prim_selection_status_valid", &S::isPrimSelectionStatusValid,
                   "False once the selected objects have changed.")
      .def("__eq__", &isEqual, nb::is_operator())
      .def("__copy__", [](const S& s) { return S(s); })
      .def(
          "__deepcopy__", [](const S& s, nb::handle) { return S(s); }, nb::arg("memo"))
      .def("__repr__",
           [](const S& s) { return "<GeoSelection of " + std::to_string(s.size()) + " objects>"; })
      // Not by the text form, which rounds values to six digits.
      .def(
          "__getstate__",
          [](const S& s) {
            nb::list out;
            for (const ovo::Path& path : pathsOf(s)) {
              const GeoObjectSelection& object = s.find(path)->second;
              out.append(nb::make_tuple(textOut(path.asString()), object.objectSelected,
                                        object.parts[0], object.parts[1]));
            }
            return out;
          },
          nb::sig("def __getstate__(self) -> list[typing.Any]"))
      .def("__setstate__", [](S& s, const nb::list& entries) {
        new (&s) S();
        for (const nb::handle entry : entries) {
          const auto path = nb::cast<ovo::Path>(nb::object(entry[0]));
          s.setObjectSelected(path, nb::cast<bool>(nb::object(entry[1])));
          s.getWritablePartSelection(path, vertices) = nb::cast<W>(nb::object(entry[2]));
          s.getWritablePartSelection(path, faces) = nb::cast<W>(nb::object(entry[3]));
        }
      });
  selection.attr("__hash__") = nb::none();

  using G = GlobalGeoSelection;
  nb::class_<G> global(
      m, "GlobalGeoSelection",
      "The selection of the running application, and what it was when an additive edit began. "
      "There is "
      "one: vela.selection.global_selection().\n\n"
      ">>> shared = vela.selection.global_selection()\n>>> shared.current.clear()\n"
      ">>> shared.current.set_object_selected('/Bowl', True)\n>>> "
      "shared.set_anchor_from_current()\n"
      ">>> shared.current.clear()\n>>> shared.add_anchor_to_current()\n>>> len(shared.current)\n1");
  global
      .def_prop_ro(
          "current", [](G& g) -> S& { return g.getWritableCurrent(); }, nb::rv_policy::reference,
          "The selection; changes in place.")
      .def_prop_ro(
          "anchor", [](const G& g) { return S(g.getAnchor()); }, "A copy of the anchor.")
      .def("set_anchor_from_current", &G::setAnchorFromCurrent, "An additive edit begins.")
      .def("clear_anchor", &G::clearAnchor, "Forgets the anchor.")
      .def("add_anchor_to_current", &G::addAnchorToCurrent, "What was selected before joins.")
      .def("__repr__", [](const G& g) {
        return "<GlobalGeoSelection of " + std::to_string(g.getCurrent().size()) + " objects>";
      });
  refusePickle(global, "there is one a process; pickle its current selection");
  m.def("global_selection", &G::GetInstance, nb::rv_policy::reference,
        "The one of this process.\n\n"
        ">>> vela.selection.global_selection() is vela.selection.global_selection()\nTrue");
}

}  // namespace vela::python
