// Channels, sets, packs and registries.
#include <nanobind/make_iterator.h>

#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "Calls.h"
#include "Module.h"
#include "Records.h"
#include "vela/channels/Channel.h"
#include "vela/channels/ChannelAlias.h"
#include "vela/channels/ChannelManager.h"
#include "vela/channels/ChannelPack.h"
#include "vela/channels/ChannelSet.h"
#include "vela/channels/DefaultChannelManager.h"

namespace nanobind::detail {

// A channel is its number in Python, too.
template <>
struct type_caster<vela::Channel> {
  NB_TYPE_CASTER(vela::Channel, const_name("int"))
  bool from_python(handle source, std::uint32_t flags, cleanup_list* cleanup) noexcept {
    make_caster<int> number;
    if (!number.from_python(source, flags, cleanup)) return false;
    value = vela::Channel(number.value);
    return true;
  }
  static handle from_cpp(vela::Channel channel, rv_policy, cleanup_list*) noexcept {
    return PyLong_FromLong(channel.index());
  }
};

}  // namespace nanobind::detail

namespace vela::python {

namespace {

template <class T>
std::string printed(const T& value) {
  std::ostringstream out;
  out << value;
  return out.str();
}

void bindTypes(nb::module_& m) {
  nb::enum_<Channel::Type>(
      m, "ChannelType", nb::is_arithmetic(),
      "What the data in a channel or a layer means; the numbers never change.\n\n"
      ">>> vela.ChannelType.COLOR_RED.value\n4\n"
      ">>> vela.channel_type_string(vela.ChannelType.DATA_VEC_Y)\n'data-vec-y'")
      .value("AUTO", Channel::auto_, "The registry picks the type from the sub-name.")
      .value("NONE", Channel::none)
      .value("BLENDABLE", Channel::blendable)
      .value("COLOR3", Channel::color3)
      .value("COLOR4", Channel::color4)
      .value("COLOR_RED", Channel::colorRed)
      .value("COLOR_GREEN", Channel::colorGreen)
      .value("COLOR_BLUE", Channel::colorBlue)
      .value("COLOR_ALPHA", Channel::colorAlpha)
      .value("COLOR_COMP0", Channel::colorComp0)
      .value("COLOR_COMP1", Channel::colorComp1)
      .value("COLOR_COMP2", Channel::colorComp2)
      .value("COLOR_COMP3", Channel::colorComp3)
      .value("MASK", Channel::mask)
      .value("DATA", Channel::data)
      .value("DATA_DEPTH", Channel::dataDepth)
      .value("DATA_LENGTH", Channel::dataLength)
      .value("DATA_VEC2", Channel::dataVec2)
      .value("DATA_VEC3", Channel::dataVec3)
      .value("DATA_VEC4", Channel::dataVec4)
      .value("DATA_VEC_X", Channel::dataVecX)
      .value("DATA_VEC_Y", Channel::dataVecY)
      .value("DATA_VEC_Z", Channel::dataVecZ)
      .value("DATA_VEC_W", Channel::dataVecW)
      .value("BITMASK", Channel::bitmask)
      .value("BITMASK_ID", Channel::bitmaskId)
      .value("BITMASK_ID2", Channel::bitmaskId2)
      .value("BITMASK_ID3", Channel::bitmaskId3)
      .value("BITMASK_ID4", Channel::bitmaskId4)
      .value("BITMASK_ID_COMP0", Channel::bitmaskIdComp0)
      .value("BITMASK_ID_COMP1", Channel::bitmaskIdComp1)
      .value("BITMASK_ID_COMP2", Channel::bitmaskIdComp2)
      .value("BITMASK_ID_COMP3", Channel::bitmaskIdComp3);
  using Type = Channel::Type;
  const auto table = [&m](const char* name, auto function, const char* doc) {
    m.def(
        name, [function](Type t) { return function(t); }, nb::arg("type"), doc);
  };
  table("is_blendable_type", &Channel::IsBlendableType,
        "May be filtered and mixed.\n\n>>> vela.is_blendable_type(vela.ChannelType.MASK)\nTrue");
  table("is_data_type", &Channel::IsDataType,
        "Must not be mixed.\n\n>>> vela.is_data_type(vela.ChannelType.DATA_DEPTH)\nTrue");
  table("is_bitmask_type", &Channel::IsBitmaskType,
        "A bitmask.\n\n>>> vela.is_bitmask_type(vela.ChannelType.DATA)\nFalse");
  table("is_vector_type", &Channel::IsVectorType,
        "A vector or one of its components.\n\n>>> "
        "vela.is_vector_type(vela.ChannelType.DATA_VEC_W)\nTrue");
  table("is_color_type", &Channel::IsColorType,
        "A colour or one of its first three components.\n\n"
        ">>> vela.is_color_type(vela.ChannelType.COLOR_ALPHA)\nFalse");
  table("is_compound_member_type", &Channel::IsCompoundMemberType,
        "A component of a compound.\n\n>>> "
        "vela.is_compound_member_type(vela.ChannelType.COLOR_RED)\nTrue");
  m.def(
      "channel_type_string", [](Type t) { return std::string(Channel::TypeString(t)); },
      nb::arg("type"),
      "The type's name.\n\n>>> vela.channel_type_string(vela.ChannelType.NONE)\n'none'");
  m.def(
      "channel_type_from_subname",
      [](const std::string& subname) { return Channel::TypeFromSubname(subname.c_str()); },
      nb::arg("subname"),
      "What the default registry makes of a sub-name.\n\n"
      ">>> vela.channel_type_from_subname('red').name\n'COLOR_RED'");
  m.def("channel_type_compound_type", &Channel::TypeCompoundType, nb::arg("member"), nb::arg("n"),
        "The compound of n elements that a component belongs to.\n\n"
        ">>> vela.channel_type_compound_type(vela.ChannelType.DATA_VEC_Y, 2).name\n'DATA_VEC2'");
  m.def("channel_type_compound_value_type", &Channel::TypeCompoundValueType, nb::arg("type"),
        nb::arg("n"),
        "The value-type code of that compound, 127 for none.\n\n"
        ">>> vela.channel_type_compound_value_type(vela.ChannelType.DATA_VEC_Y, 2)\n33");
  m.def("channel_type_num_data_elements", &Channel::TypeNumDataElements, nb::arg("type"),
        "Elements of a colour or vector compound, else 0.\n\n"
        ">>> vela.channel_type_num_data_elements(vela.ChannelType.COLOR3)\n3");
  m.def("channel_type_ordering", &Channel::TypeOrdering, nb::arg("type"),
        "A component's index in its compound; -1 for none.\n\n"
        ">>> vela.channel_type_ordering(vela.ChannelType.COLOR_BLUE)\n2");
  m.def("channel_type_value_type", &Channel::TypeValueType, nb::arg("type"),
        "The value-type code of one element, 127 for none.\n\n"
        ">>> vela.channel_type_value_type(vela.ChannelType.COLOR_RED)\n23");
}

std::vector<int> numbersOf(const ChannelSet& set) {
  std::vector<int> numbers;
  for (const Channel channel : set) numbers.push_back(channel.index());
  return numbers;
}

void bindSet(nb::module_& m) {
  using S = ChannelSet;
  nb::class_<S> set(
      m, "ChannelSet",
      "A set of channels of one registry; channels are their numbers, from 1. `all()` holds every "
      "channel, also those that no number names yet. Text names layers of the registry.\n\n"
      ">>> pixels = vela.ChannelSet([1, 2, 3]) | vela.ChannelSet([40])\n"
      ">>> list(pixels), 40 in pixels, 4 in pixels, len(pixels)\n([1, 2, 3, 40], True, False, 4)\n"
      ">>> str(vela.ChannelSet([1, 2, 3, 4])), vela.ChannelSet.all().is_all\n('rgba', True)");
  set.def(nb::init<>())
      .def(
          "__init__",
          [](S* self, const std::vector<int>& channels) {
            new (self) S();
            for (const int channel : channels) self->insert(Channel(channel));
          },
          nb::arg("channels"),
          nb::sig("def __init__(self, channels: typing.Iterable[int]) -> None"))
      .def_static(
          "of_registry", [](ChannelManager& registry) { return new S(&registry); },
          nb::arg("registry"), nb::rv_policy::take_ownership, nb::keep_alive<0, 1>(),
          "The empty set of a registry.")
      .def_static(
          "from_mask", [](unsigned mask) { return S(mask); }, nb::arg("mask"),
          "The channels of a mask: bit k holds channel k + 1; bit 31 says all above.")
      .def_static(
          "all", [] { return S(0xFFFFFFFFu); }, "The set of all channels.")
      .def(
          "__contains__",
          [](const S& s, nb::handle channel) {
            int number = 0;
            return nb::try_cast(channel, number) && (s & number);
          },
          nb::arg().none(), nb::sig("def __contains__(self, channel: object, /) -> bool"))
      .def("__len__", [](const S& s) { return s.size(); })
      .def("__bool__", [](const S& s) { return !s.empty(); })
      .def(
          "__iter__", [](const S& s) { return nb::iter(nb::cast(numbersOf(s))); },
          nb::sig("def __iter__(self) -> typing.Iterator[int]"))
      .def(
          "add", [](S& s, int channel) { s += Channel(channel); }, nb::arg("channel"),
          "Adds a channel; 0 and below change nothing.")
      .def(
          "discard", [](S& s, int channel) { s -= Channel(channel); }, nb::arg("channel"),
          "Removes a channel.")
      .def("clear", &S::clear, "Removes all channels.")
      .def(
          "copy", [](const S& s) { return S(s); }, "The same channels, of the default registry.")
      .def("__copy__", [](const S& s) { return S(s); })
      .def(
          "__deepcopy__", [](const S& s, nb::handle) { return S(s); }, nb::arg("memo"))
      .def(
          "isdisjoint", [](const S& a, const S& b) { return !(a & b); }, nb::arg("other"),
          "True without a common member.")
      .def(
          "issuperset", [](const S& a, const S& b) { return a.contains(b); }, nb::arg("other"),
          "True when every member of the other one is a member.")
      .def(
          "__or__",
          [](const S& a, const S& b) {
            S out(a);
            out += b;
            return out;
          },
          nb::is_operator())
      .def(
          "__sub__",
          [](const S& a, const S& b) {
            S out(a);
            out -= b;
            return out;
          },
          nb::is_operator())
      .def(
          "__and__",
          [](const S& a, const S& b) {
            S out(a);
            out &= b;
            return out;
          },
          nb::is_operator())
      .def(
          "__ior__",
          [](S& a, const S& b) -> S& {
            a += b;
            return a;
          },
          nb::is_operator(), nb::rv_policy::none)
      .def(
          "__isub__",
          [](S& a, const S& b) -> S& {
            a -= b;
            return a;
          },
          nb::is_operator(), nb::rv_policy::none)
      .def(
          "__iand__",
          [](S& a, const S& b) -> S& {
            a &= b;
            return a;
          },
          nb::is_operator(), nb::rv_policy::none)
      .def(
          "__eq__", [](const S& a, const S& b) { return a == b; }, nb::is_operator())
      .def(
          "__lt__", [](const S& a, const S& b) { return a < b; }, nb::is_operator())
      .def_prop_ro(
          "is_all", [](const S& s) { return s.all(); },
          "Whether every channel above the stored ones is a member.")
      .def_prop_ro(
          "mask32", [](const S& s) { return s.mask32(); }, "The first word.")
      .def_prop_ro(
          "first", [](const S& s) { return s.first(); }, "The lowest channel; 0: none.")
      .def_prop_ro(
          "last", [](const S& s) { return s.last(); }, "The highest channel; 0: none.")
      .def(
          "next", [](const S& s, int channel) { return s.next(Channel(channel)); },
          nb::arg("channel"), "The lowest member above a channel; 0: none.")
      .def(
          "previous", [](const S& s, int channel) { return s.previous(Channel(channel)); },
          nb::arg("channel"), "The highest member below a channel; 0: none.")
      .def_prop_ro(
          "registry", [](const S& s) { return s.context(); }, nb::rv_policy::reference,
          "The registry that the numbers refer to.")
      .def(
          "change_registry", [](S& s, ChannelManager* registry) { s.changeContext(registry); },
          nb::arg("registry").none(), nb::keep_alive<1, 2>(),
          "Moves the set to another registry (None: the default one) and empties it.")
      .def("__str__", &printed<S>)
      .def("__repr__", [](const S& s) { return "<ChannelSet " + printed(s) + ">"; })
      .def(
          "__reduce__",
          [](nb::handle self) {
            const S& s = nb::cast<const S&>(self);
            if (s.all())
              throw nb::type_error("a ChannelSet that holds all channels cannot be pickled");
            return nb::make_tuple(self.type(), nb::make_tuple(numbersOf(s)));
          },
          nb::sig("def __reduce__(self) -> tuple[typing.Any, ...]"));
  set.attr("__hash__") = nb::none();

  using P = ChannelPack;
  nb::class_<P> pack(
      m, "ChannelPack",
      "Up to 1024 channels in the order in which they were added; what is added to a full "
      "pack is ignored.\n\n"
      ">>> pack = vela.ChannelPack([4])\n>>> pack.add_set(vela.ChannelSet([1, 2, 3, 4]))\n"
      ">>> str(pack), list(pack)\n('4, 1, 2, 3', [4, 1, 2, 3])");
  pack.def(nb::init<>())
      .def(
          "__init__",
          [](P* self, const std::vector<int>& channels) {
            new (self) P();
            for (const int channel : channels) self->add(Channel(channel), false);
          },
          nb::arg("channels"),
          nb::sig("def __init__(self, channels: typing.Iterable[int]) -> None"))
      .def(
          "add", [](P& p, int channel, bool unique) { p.add(Channel(channel), unique); },
          nb::arg("channel"), nb::arg("unique") = true, "Appends a channel.")
      .def(
          "add_set", [](P& p, const ChannelSet& set_, bool unique) { p.add(set_, unique); },
          nb::arg("channels"), nb::arg("unique") = true, "Appends a set's channels, ascending.")
      .def(
          "set", [](P& p, const ChannelSet& set_) { p.set(set_); }, nb::arg("channels"),
          "Replaces the content by a set's channels.")
      .def("clear", &P::clear, "Removes all channels.")
      .def("__len__", &P::size)
      .def(
          "__getitem__",
          [](const P& p, Py_ssize_t i) {
            return p[static_cast<unsigned>(indexOf(i, p.size(), "pack"))];
          },
          nb::arg("index"))
      .def(
          "to_set", [](const P& p) { return ChannelSet(p.array(), static_cast<int>(p.size())); },
          "The set of the entries.")
      .def(
          "__eq__",
          [](const P& a, const P& b) {
            return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                              [](Channel x, Channel y) { return x.index() == y.index(); });
          },
          nb::is_operator())
      .def("__str__", &printed<P>)
      .def("__repr__", [](const P& p) { return "<ChannelPack " + printed(p) + ">"; })
      .def(
          "__reduce__",
          [](nb::handle self) {
            return nb::make_tuple(self.type(), nb::make_tuple(nb::list(self)));
          },
          nb::sig("def __reduce__(self) -> tuple[typing.Any, ...]"));
  pack.attr("__hash__") = nb::none();
}

// A record belongs to its registry and may end before it, when that is cleared. So Python holds a
// registry and a number or a name, and looks the record up each time.
struct ChannelRef {
  nb::object registry;
  int number = 0;

  [[nodiscard]] ChannelAlias& get() const {
    ChannelAlias* const found = nb::cast<ChannelManager&>(registry).channel(Channel(number));
    if (!found) {
      PyErr_SetString(PyExc_ReferenceError, "the registry was cleared: the channel is gone");
      throw nb::python_error();
    }
    return *found;
  }
};
struct LayerRef {
  nb::object registry;
  std::string name;

  [[nodiscard]] LayerAlias& get() const {
    ChannelManager& manager = nb::cast<ChannelManager&>(registry);
    for (LayerAlias* const layer : manager.allLayers())
      if (layer && layer->name() == name) return *layer;
    PyErr_SetString(PyExc_ReferenceError, "the registry was cleared: the layer is gone");
    throw nb::python_error();
  }
};
std::optional<ChannelRef> refTo(nb::handle registry, const ChannelAlias* channel) {
  if (!channel) return std::nullopt;
  return ChannelRef{nb::borrow(registry), channel->channel().index()};
}
std::optional<LayerRef> refTo(nb::handle registry, const LayerAlias* layer) {
  if (!layer) return std::nullopt;
  return LayerRef{nb::borrow(registry), layer->name()};
}

void bindRecords(nb::module_& m) {
  nb::class_<ChannelRef> channel(
      m, "ChannelAlias",
      "The record of one channel in a registry. After the registry was cleared it is a "
      "ReferenceError to ask it.\n\n"
      ">>> registry = vela.GlobalChannelManager()\n>>> u = registry.create_channel('flow.u')\n"
      ">>> u.name, u.subname, u.position, u.purpose.name\n('flow.u', 'u', 0, 'DATA_VEC_X')");
  channel
      .def_prop_ro(
          "name", [](const ChannelRef& c) { return c.get().name(); }, "Layer, dot, sub-name.")
      .def_prop_ro(
          "subname", [](const ChannelRef& c) { return c.get().subname(); }, "Behind the dot.")
      .def_prop_ro(
          "channel", [](const ChannelRef& c) { return c.get().channel(); }, "Its number.")
      .def_prop_ro(
          "position", [](const ChannelRef& c) { return c.get().position(); },
          "In the owning layer.")
      .def_prop_ro(
          "color_index", [](const ChannelRef& c) { return c.get().colorIndex(); },
          "The position, but never less than 3.")
      .def_prop_ro(
          "layer", [](const ChannelRef& c) { return refTo(c.registry, c.get().layer()); },
          "The owning layer, or None.")
      .def_prop_ro(
          "registry", [](const ChannelRef& c) { return c.registry; },
          nb::sig("def registry(self) -> ChannelManager"), "The registry.")
      .def_prop_rw(
          "purpose", [](const ChannelRef& c) { return c.get().purpose(); },
          [](const ChannelRef& c, Channel::Type t) { c.get().setPurpose(t); }, "Its type.")
      .def_prop_rw(
          "is_user_visible", [](const ChannelRef& c) { return c.get().isUserVisible(); },
          [](const ChannelRef& c, bool v) { c.get().setUserVisible(v); }, "Initially True.")
      .def_prop_rw(
          "mark_number", [](const ChannelRef& c) { return c.get().markNumber(); },
          [](const ChannelRef& c, int n) { c.get().setMarkNumber(n); }, "Initially 0.")
      .def_prop_ro(
          "is_built_in", [](const ChannelRef& c) { return c.get().isBuiltIn(); },
          "Below the registry's highest built-in channel.")
      .def(
          "set_name",
          [](const ChannelRef& c, const std::string& layer, const std::string& subname) {
            c.get().setName(layer.c_str(), subname.c_str());
          },
          nb::arg("layer"), nb::arg("subname"), "Renames the record.")
      .def(
          "__eq__",
          [](const ChannelRef& a, const ChannelRef& b) {
            return a.registry.is(b.registry) && a.number == b.number;
          },
          nb::is_operator())
      .def("__hash__", [](const ChannelRef& c) { return nb::hash(nb::make_tuple(c.number)); })
      .def("__int__", [](const ChannelRef& c) { return c.number; })
      .def("__str__", [](const ChannelRef& c) { return printed(c.get()); })
      .def("__repr__",
           [](const ChannelRef& c) { return "<ChannelAlias " + printed(c.get()) + ">"; });
  refusePickle(channel, "it belongs to a registry; pickle its name");

  nb::class_<LayerRef> layer(
      m, "LayerAlias",
      "The record of one layer: channels by position, with holes (None).\n\n"
      ">>> registry = vela.GlobalChannelManager()\n>>> layer = registry.layer('rgba')\n"
      ">>> len(layer), layer[0].name, layer.channel_set\n(4, 'rgba.red', <ChannelSet rgba>)");
  layer
      .def_prop_ro(
          "name", [](const LayerRef& l) { return l.get().name(); }, "Its name.")
      .def_prop_rw(
          "label", [](const LayerRef& l) { return l.get().label(); },
          [](const LayerRef& l, const std::string& text) { l.get().setLabel(text.c_str()); },
          "Initially the name.")
      .def("__len__", [](const LayerRef& l) { return l.get().size(); })
      .def(
          "__getitem__",
          [](const LayerRef& l, Py_ssize_t i) {
            return refTo(l.registry, l.get()[indexOf(i, l.get().size(), "layer")]);
          },
          nb::arg("position"))
      .def(
          "channel", [](const LayerRef& l, unsigned position) { return l.get().channel(position); },
          nb::arg("position"), "The number of the channel at a position; 0 for a hole.")
      .def_prop_ro(
          "index", [](const LayerRef& l) { return l.get().index(); },
          "The index that it had in the registry's list when it was created.")
      .def(
          "index_of",
          [](const LayerRef& l, const ChannelRef& c) { return l.get().index(&c.get()); },
          nb::arg("channel"), "The first position of a channel, -1 when it is not listed.")
      .def_prop_ro(
          "channel_set", [](const LayerRef& l) { return ChannelSet(l.get().channelSet()); },
          "A copy of the numbers of all channels that it ever listed.")
      .def(
          "intersects", [](const LayerRef& l, const ChannelSet& s) { return l.get().intersect(s); },
          nb::arg("channels"), "True with a common member.")
      .def_prop_rw(
          "value_type", [](const LayerRef& l) { return l.get().valueType(); },
          [](const LayerRef& l, int code) { l.get().setValueType(code); },
          "A code of ovo.ValueType.")
      .def_prop_rw(
          "purpose", [](const LayerRef& l) { return l.get().purpose(); },
          [](const LayerRef& l, Channel::Type t) { l.get().setPurpose(t); },
          "AUTO until the first member fixes it.")
      .def_prop_rw(
          "is_user_visible", [](const LayerRef& l) { return l.get().isUserVisible(); },
          [](const LayerRef& l, bool v) { l.get().setUserVisible(v); }, "Initially True.")
      .def_prop_rw(
          "mark_number", [](const LayerRef& l) { return l.get().markNumber(); },
          [](const LayerRef& l, int n) { l.get().setMarkNumber(n); }, "Initially 0.")
      .def_prop_ro(
          "is_built_in", [](const LayerRef& l) { return l.get().isBuiltIn(); },
          "True when there are members and all of them are built in.")
      .def(
          "add",
          [](const LayerRef& l, const ChannelRef& c, int n) { l.get().add(&c.get(), n, false); },
          nb::arg("channel"), nb::arg("n") = 0,
          "Puts a channel into the first hole, or at the end.")
      .def(
          "replace",
          [](const LayerRef& l, unsigned position, const ChannelRef* c) {
            l.get().replace(position, c ? &c->get() : nullptr);
          },
          nb::arg("position"), nb::arg("channel").none(),
          "Puts a channel, or a hole, at a position.")
      .def(
          "__eq__",
          [](const LayerRef& a, const LayerRef& b) {
            return a.registry.is(b.registry) && a.name == b.name;
          },
          nb::is_operator())
      .def("__hash__", [](const LayerRef& l) { return nb::hash(nb::make_tuple(l.name)); })
      .def("__str__", [](const LayerRef& l) { return printed(l.get()); })
      .def("__repr__", [](const LayerRef& l) { return "<LayerAlias " + printed(l.get()) + ">"; });
  refusePickle(layer, "it belongs to a registry; pickle its name");
}

void bindRegistry(nb::module_& m) {
  using R = ChannelManager;
  nb::class_<R> registry(
      m, "ChannelManager",
      "The registry that gives channel names their numbers. Names are layer, dot, "
      "sub-name. Equality is identity.\n\n"
      ">>> vela.default_channel_manager().channel_by_number(1).name\n'rgba.red'");
  const auto self = [](nb::handle h) -> R& { return nb::cast<R&>(h); };
  // For calls that change a registry: none that renders reads it meanwhile.
  const auto change = [](nb::handle h) -> R& {
    const Busy::Changing changing(registryUse(), "the channel registry");
    return nb::cast<R&>(h);
  };
  registry
      .def_prop_ro(
          "label", [](const R& r) { return r.registryLabel(); }, "May be empty.")
      .def_prop_ro(
          "max_channel_count", [](const R& r) { return r.maxChannelCount(); }, "1023.")
      .def(
          "channel",
          [self](nb::handle h, const std::string& name) {
            return refTo(h, self(h).getChannel(name.c_str()));
          },
          nb::arg("name"), nb::sig("def channel(self, name: str) -> ChannelAlias | None"),
          "The channel that a name finds, or None; the default registry knows single letters "
          "alone.")
      .def(
          "channel_by_number",
          [self](nb::handle h, int number) { return refTo(h, self(h).channel(Channel(number))); },
          nb::arg("number"),
          nb::sig("def channel_by_number(self, number: int) -> ChannelAlias | None"),
          "The record of a number, or None.")
      .def(
          "layer",
          [self](nb::handle h, const std::string& name) {
            return refTo(h, self(h).getLayer(name.c_str()));
          },
          nb::arg("name"), nb::sig("def layer(self, name: str) -> LayerAlias | None"),
          "The layer of exactly that name, or None.")
      .def(
          "create_channel",
          [change](nb::handle h, const std::string& name, Channel::Type type, int n) {
            const auto made = refTo(h, change(h).createChannel(name.c_str(), type, n));
            if (!made)
              refuse("'" + name + "': a channel needs a layer in its name and a free number");
            return *made;
          },
          nb::arg("name"), nb::arg("type") = Channel::auto_, nb::arg("n") = 0,
          nb::sig("def create_channel(self, name: str, type: ChannelType = ChannelType.AUTO, n: "
                  "int = 0) -> ChannelAlias"),
          "The channel of a full name, found or created with its layer. ValueError without a layer "
          "in "
          "the name, and when the numbers are used up.")
      .def(
          "create_layer",
          [change](nb::handle h, const std::string& name) {
            const auto made = refTo(h, change(h).createLayer(name.c_str()));
            if (!made) refuse("'" + name + "': no layer can be made");
            return *made;
          },
          nb::arg("name"), nb::sig("def create_layer(self, name: str) -> LayerAlias"),
          "The layer of that name, found or created empty.")
      .def(
          "create_float_layer",
          [change](nb::handle h, const std::string& name, const std::string& subname) {
            return refTo(h, change(h).createFloatLayer(name.c_str(), subname.c_str()));
          },
          nb::arg("name"), nb::arg("subname"),
          nb::sig("def create_float_layer(self, name: str, subname: str) -> LayerAlias | None"),
          "A layer with one new channel; the one of that name when there is one.")
      .def(
          "create_vec_layer",
          [change](nb::handle h, const std::string& name, const std::string& s) {
            R& r = change(h);
            LayerAlias* made = nullptr;
            switch (s.size()) {
              case 2: made = r.createVec2Layer(name.c_str(), s.c_str()); break;
              case 3: made = r.createVec3Layer(name.c_str(), s.c_str()); break;
              case 4: made = r.createVec4Layer(name.c_str(), s.c_str()); break;
              default: refuse("subnames: expected 2 to 4 letters");
            }
            return refTo(h, made);
          },
          nb::arg("name"), nb::arg("subnames"),
          nb::sig("def create_vec_layer(self, name: str, subnames: str) -> LayerAlias | None"),
          "A layer with new channels, `subnames` being their letters: `xyz`.")
      .def(
          "create_color_layer",
          [change](nb::handle h, const std::string& name, const std::string& r,
                   const std::string& g, const std::string& b,
                   const std::optional<std::string>& a) {
            return refTo(h, change(h).createColorLayer(name.c_str(), r.c_str(), g.c_str(),
                                                       b.c_str(), a ? a->c_str() : nullptr));
          },
          nb::arg("name"), nb::arg("red"), nb::arg("green"), nb::arg("blue"),
          nb::arg("alpha") = nb::none(),
          nb::sig("def create_color_layer(self, name: str, red: str, green: str, blue: str, alpha: "
                  "str | None = None) -> LayerAlias | None"),
          "The layer of that name; a new one only when fewer numbers are free than it needs.")
      .def(
          "sort_channels", [](R& r) { r.sortChannels(); }, "Sorts the user channels in the list.")
      .def(
          "sort_layers", [](R& r) { r.sortLayers(); }, "Sorts the user layers in the list.")
      .def(
          "remap_channel_name",
          [](const R& r, const std::string& name) { return r.remapChannelName(name.c_str()); },
          nb::arg("name"), "The name that is looked up for a name.")
      .def_prop_ro(
          "is_channel_remapping_enabled", [](const R& r) { return r.isChannelRemappingEnabled(); },
          "Whether names are rewritten.")
      .def(
          "channel_type_from_subname",
          [](const R& r, const std::string& name) {
            return r.getChannelTypeFromSubname(name.c_str());
          },
          nb::arg("subname"), "What a sub-name says about its channel.")
      .def(
          "channel_name",
          [](const R& r, int number) -> std::optional<std::string> {
            const char* const name = r.getChannelName(Channel(number));
            return name ? std::optional<std::string>(name) : std::nullopt;
          },
          nb::arg("number"), "The name of a number's record, or None.")
      .def(
          "layer_name",
          [](const R& r, int number) -> std::optional<std::string> {
            const char* const name = r.getLayerName(Channel(number));
            return name ? std::optional<std::string>(name) : std::nullopt;
          },
          nb::arg("number"), "The name of that record's layer, or None.")
      .def(
          "channels",
          [](nb::handle h) {
            std::vector<ChannelRef> out;
            for (const ChannelAlias* const c : nb::cast<R&>(h).allChannels())
              if (c) out.push_back(*refTo(h, c));
            return out;
          },
          nb::sig("def channels(self) -> list[ChannelAlias]"), "All channels, in list order.")
      .def(
          "layers",
          [](nb::handle h) {
            std::vector<LayerRef> out;
            for (const LayerAlias* const l : nb::cast<R&>(h).allLayers())
              if (l) out.push_back(*refTo(h, l));
            return out;
          },
          nb::sig("def layers(self) -> list[LayerAlias]"), "All layers, in list order.")
      .def_prop_ro("n_built_in_channels", &R::nBuiltInChannels, "Built-in channels.")
      .def_prop_ro("n_built_in_layers", &R::nBuiltInLayers, "Built-in layers.")
      .def_prop_ro("n_available_channel_slots", &R::nAvailableChannelSlots,
                   "Numbers that are left.")
      .def_prop_ro("last_builtin_channel", &R::lastBuiltinChannel, "The highest built-in number.")
      .def_prop_ro("first_undefined_channel", &R::firstUndefinedChannel, "The next number.")
      .def(
          "compare_channels",
          [](const R& r, int a, int b) { return r.compareChannels(Channel(a), Channel(b)); },
          nb::arg("a"), nb::arg("b"), "Whether `a` sorts before `b`.")
      .def("__repr__", [](const R& r) {
        return "<ChannelManager of " + std::to_string(r.nChannels()) + " channels>";
      });
  refusePickle(registry, "records of the process refer to it; pickle names");
  nb::class_<BraeGlobalChannelManager, R>(
      m, "GlobalChannelManager",
      "A registry with the host's built-in channels and layers and its rewriting of names.\n\n"
      ">>> registry = vela.GlobalChannelManager()\n"
      ">>> registry.remap_channel_name('rgb.red'), registry.create_channel('other.spare').channel\n"
      "('rgba.red', 23)")
      .def(nb::init<>())
      .def(
          "copy", [](const BraeGlobalChannelManager& r) { return new BraeGlobalChannelManager(r); },
          nb::rv_policy::take_ownership,
          "Shares the records; the two registries go on separately.");
  m.def("default_channel_manager", &DefaultChannelManager, nb::rv_policy::reference,
        "The single registry that sets without one of their own refer to.\n\n"
        ">>> vela.default_channel_manager().layer('rgba').name\n'rgba'");
  m.def("channel_manager", &GetChannelManager, nb::arg("name"), nb::rv_policy::reference,
        "Named registries are not provided: None.\n\n>>> vela.channel_manager('mine')");
  m.def("create_channel_manager", &CreateChannelManager, nb::arg("name"), nb::rv_policy::reference,
        "Named registries are not provided: None.\n\n>>> vela.create_channel_manager('mine')");
  m.def(
      "remap_channel_name", [](const std::string& name) { return RemapChannelName(name.c_str()); },
      nb::arg("name"),
      "The default registry's rewriting.\n\n>>> vela.remap_channel_name('spare')\n'other.spare'");
  m.def(
      "split_channel_name",
      [](const std::string& full) {
        std::string layer, subname;
        SplitChannelName(full, layer, subname);
        return std::tuple(layer, subname);
      },
      nb::arg("name"),
      "(layer, sub-name) of a full name, parted at its last dot.\n\n"
      ">>> vela.split_channel_name('beauty.left.red')\n('beauty.left', 'red')");
}

}  // namespace

void bindChannels(nb::module_& m) {
  bindTypes(m);
  bindSet(m);
  bindRecords(m);
  bindRegistry(m);
}

}  // namespace vela::python
