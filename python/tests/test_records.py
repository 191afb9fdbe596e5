"""Records: made from fields, told as text, compared, copied, pickled."""

import copy
import inspect
import pickle

import numpy
import pytest

import vela

MODULES = [vela._vela, vela._vela.tarn, vela._vela.ovo, vela._vela.scene, vela._vela.selection, vela._vela.look, vela._vela.picture]
CLASSES = {}
for module in MODULES:
    for name, thing in vars(module).items():
        if inspect.isclass(thing):
            CLASSES[f"{module.__name__}.{name}"] = thing
RECORDS = {name: kind for name, kind in CLASSES.items() if hasattr(kind, "_fields")}


def test_there_are_records():
    assert len(RECORDS) > 40


@pytest.mark.parametrize("kind", RECORDS.values(), ids=RECORDS.keys())
def test_a_record_is_what_its_fields_are(kind):
    one, other = kind(), kind()
    text = repr(one)
    assert text.startswith(kind.__name__ + "(") and all(f"{field}=" in text for field in kind._fields)
    assert one == other and not (one != other) and one != 5
    with pytest.raises(TypeError):
        hash(one)
    with pytest.raises(TypeError, match="there is no field 'nonsense'"):
        kind(nonsense=1)
    # Each field takes what it gives.
    for field in kind._fields:
        setattr(one, field, getattr(other, field))
    assert one == other


@pytest.mark.parametrize("kind", RECORDS.values(), ids=RECORDS.keys())
def test_a_record_is_pickled_or_says_why_not(kind):
    one = kind()
    try:
        data = pickle.dumps(one)
    except TypeError as reason:
        assert "cannot be pickled: " in str(reason)
        assert kind in (vela.MeshSample, vela.Camera.Sample) or any("prim" in field or "material" in field for field in kind._fields)
        return
    assert pickle.loads(data) == one
    assert copy.deepcopy(one) == one


@pytest.mark.parametrize("kind", CLASSES.values(), ids=CLASSES.keys())
def test_every_class_is_pickled_or_says_why_not(kind):
    assert "__reduce__" in vars(kind) or "__getstate__" in vars(kind) or hasattr(kind, "__members__") or \
        any("__reduce__" in vars(base) for base in kind.__mro__[1:-1]), kind


def test_records_differ_by_values():
    one = vela.tarn.Box3f([0, 0, 0], [1, 1, 1])
    assert one != vela.tarn.Box3f([0, 0, 0], [1, 1, 2]) and one != vela.tarn.Box3d([0, 0, 0], [1, 1, 1])
    assert pickle.loads(pickle.dumps(one)) == one
    rays = vela.RayContext()
    rays.set([1, 2, 3], [4, 5, 6], 1, 0.5, 1, 0, 10)
    assert pickle.loads(pickle.dumps(rays)) == rays
    assert pickle.loads(pickle.dumps(rays)).inv_dir.tolist() == rays.inv_dir.tolist()


def test_parts_change_in_place():
    sample = vela.Camera.Sample()
    sample.sensor.aperture_size = [36, 24]
    assert sample.sensor.aperture_size.tolist() == [36, 24]
    sensor = sample.sensor
    del sample
    sensor.aperture_rotate = 5
    assert sensor.aperture_rotate == 5


def test_copies_are_apart():
    sample = vela.Camera.Sample()
    sample.update_derived_values()
    other = copy.copy(sample)
    other.optics.focal_length = 9
    assert sample.optics.focal_length == 1 and other != sample


def test_selections_and_streams_are_pickled():
    chosen = vela.selection.GeoSelection()
    chosen.set_object_selected("/A", True)
    chosen.set_part("/B", vela.selection.PartType.VERTICES, [0.1234567, 1], [0.5, 0.25])
    again = pickle.loads(pickle.dumps(chosen))
    assert again == chosen and again.part("/B", vela.selection.PartType.VERTICES).weights.tolist() == [0.5, 0.25]
    assert copy.copy(chosen) == chosen and again != vela.selection.GeoSelection()
    rng = vela.SamplingRng(5)
    rng.values(100)
    assert pickle.loads(pickle.dumps(rng)).values(50).tolist() == copy.copy(rng).values(50).tolist() == rng.values(50).tolist()
    channels = vela.ChannelSet([1, 2, 40])
    assert pickle.loads(pickle.dumps(channels)) == channels
    assert pickle.loads(pickle.dumps(vela.ChannelPack([4, 1]))) == vela.ChannelPack([4, 1])
    assert pickle.loads(pickle.dumps(vela.SphericalProjection())) == vela.SphericalProjection()
    assert pickle.loads(pickle.dumps(vela.LinearProjection(True))) == vela.LinearProjection(True) != vela.LinearProjection()


def test_sets_of_channels():
    channels = vela.ChannelSet([1, 2, 3])
    assert 2 in channels and 0 not in channels and "2" not in channels and len(channels) == 3
    assert list(channels - vela.ChannelSet([2])) == [1, 3] and list(channels & vela.ChannelSet([3, 4])) == [3]
    channels |= vela.ChannelSet([900])
    assert list(channels) == [1, 2, 3, 900] and channels.last == 900 and channels.next(3) == 900
    assert vela.ChannelSet.all().is_all and 5000 in vela.ChannelSet.all()
    with pytest.raises(TypeError, match="cannot be pickled"):
        pickle.dumps(vela.ChannelSet.all())


def test_records_of_a_registry_outlive_it_in_name_alone():
    registry = vela.GlobalChannelManager()
    channel = registry.create_channel("beauty.red")
    layer = channel.layer
    assert layer.name == "beauty" and layer[0] == channel and layer.channel_set.first == channel.channel
    del registry
    assert channel.name == "beauty.red" and layer[0].registry is channel.registry
    with pytest.raises(ValueError, match="'x.[0-9]+': a channel needs a layer in its name and a free number"):
        for i in range(1100):
            channel.registry.create_channel(f"x.{i}")
    with pytest.raises(IndexError):
        layer[7]


def test_small_numbers_do_not_take_what_does_not_fit():
    for wrong in (1 << 40, "1", None, 1.5):
        with pytest.raises(TypeError):
            vela.ChannelPack().add(wrong)
    ray = vela.RayContext()
    with pytest.raises(TypeError):
        ray.type = 70000
    assert numpy.array_equal(ray.origin, [0, 0, 0])


def test_texts_of_records_say_what_large_arrays_are():
    extent = vela.scene.Extent(outermost=numpy.zeros((98, 3)))
    assert repr(extent).endswith("outermost=<float64 (98, 3)>)")
    assert "points=<float32 (50, 3)>" in repr(vela.MeshSample(points=numpy.zeros((50, 3), numpy.float32)))
    assert "points=[[0.0, 0.0, 0.0]]" in repr(vela.MeshSample(points=numpy.zeros((1, 3), numpy.float32)))
