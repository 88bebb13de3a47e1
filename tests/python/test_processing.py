"""NUC tables, bad-pixel maps, corrections, calibration curves, palettes,
lock-in and the simulated camera: the same results as the tool's commands,
byte for byte where the tool writes files."""
import numpy as np
import pytest

import thermokit
from conftest import read_png, tool, tool_error


def test_nuc_bad_pixels_and_correction_match_the_tool(films, tmp_path):
    cold, hot, noise, plate = films["cold"], films["hot"], films["noise"], films["plate"]
    tool("nuc", "compute", "--cold", cold, "--hot", hot, "--gain-limits", "0.5:2", "-o", tmp_path / "tool.nuc")
    nuc = thermokit.Nuc(40, 24)
    nuc.gain_limits = (0.5, 2)
    nuc.compute(thermokit.open(cold), hot).save(tmp_path / "py.nuc")
    assert (tmp_path / "py.nuc").read_bytes() == (tmp_path / "tool.nuc").read_bytes()
    # From arrays of frames: the same tables, averaged the same way.
    arrays = thermokit.Nuc(40, 24)
    arrays.gain_limits = (0.5, 2)
    arrays.compute(thermokit.open(cold)[:], thermokit.open(hot)[:])
    np.testing.assert_array_equal(arrays.gain, nuc.gain)
    np.testing.assert_array_equal(arrays.offset, nuc.offset)

    tool("badpixels", "detect", "--nuc", tmp_path / "tool.nuc", "--gain", 3, "--offset", 2, "--noise-film", noise,
         "--noise", 1.5, "--noise-high", "-o", tmp_path / "tool.bpr")
    loaded = thermokit.Nuc.load(tmp_path / "tool.nuc")
    bad = thermokit.BadPixels.detect(nuc=loaded, gain=3, offset=2, noise=1.5, noise_film=noise, noise_high=True)
    bad.save(tmp_path / "py.bpr")
    assert (tmp_path / "py.bpr").read_bytes() == (tmp_path / "tool.bpr").read_bytes()
    assert len(bad) > 0 and sorted(bad.counts) == sorted(
        ["gain", "offset", "noise", "gain & offset", "offset & noise", "gain & noise", "gain & offset & noise", "total"])
    from_frames = thermokit.BadPixels.detect(nuc=loaded, gain=3, offset=2, noise=1.5,
                                             noise_film=thermokit.open(noise)[:], noise_high=True)
    np.testing.assert_array_equal(from_frames.pixels, bad.pixels)
    np.testing.assert_array_equal(from_frames.kinds, bad.kinds)
    x, y = bad.pixels.T
    assert (x < 40).all() and (y < 24).all() and ((bad.kinds & 0x1F) != 0).all()

    tool("correct", plate, "--nuc", tmp_path / "tool.nuc", "--badpixels", tmp_path / "tool.bpr", "-o",
         tmp_path / "corrected.film")
    raw = thermokit.open(plate)[:]
    np.testing.assert_array_equal(thermokit.open(tmp_path / "corrected.film")[:], bad.apply(nuc.apply(raw, bits=14)))
    with pytest.raises(ValueError, match="argument 'frame': frames of 24 x 40"):
        nuc.apply(raw[:, :, :20])
    with pytest.raises(ValueError) as caught:
        thermokit.Nuc.load(plate)
    assert str(caught.value) == tool_error("badpixels", "detect", "--nuc", plate, "--gain", 3, "-o", tmp_path / "x")


def test_calibration_curve_converts_as_the_tool_exports(demo, films, tmp_path):
    curve = str(demo / "calibration.cal")
    plate = films["plate"]
    tool("export", plate, "--format", "npy", "--calib", curve, "-o", tmp_path / "values.npy")
    cal = thermokit.Calibration.load(curve)
    assert (cal.kind, cal.unit, cal.points.shape[1]) == ("curve", "C", 2)
    levels = thermokit.open(plate)[:]
    celsius = cal.to_temperature(levels, bits=14)
    np.testing.assert_array_equal(celsius, np.load(tmp_path / "values.npy"))
    out = np.empty_like(celsius)
    assert cal.to_temperature(levels, bits=14, out=out) is out
    back = cal.to_level(celsius)
    assert np.nanmax(np.abs(back - levels)) < 1.0
    np.testing.assert_allclose(cal.to_level(celsius.astype(np.float64) + 273.15, unit="K"), back, atol=1e-3)
    with pytest.raises(ValueError, match="unit F: \"degC\" or \"K\" expected"):
        cal.to_temperature(levels, unit="F")
    with pytest.raises(FileNotFoundError) as caught:
        thermokit.Calibration.load(tmp_path / "missing.cal")
    assert str(caught.value) == tool_error("calib", "convert", tmp_path / "missing.cal", "--level", 100)
    with pytest.raises(ValueError) as caught:
        thermokit.Calibration.load(plate)
    assert str(caught.value) == tool_error("export", plate, "--format", "npy", "--calib", plate, "-o", tmp_path / "x")


def test_palette_pictures_are_the_tools_renderings(films, tmp_path):
    plate = films["plate"]
    film = thermokit.open(plate)
    tool("render", plate, "--frame", 1, "--palette", "Hot Metal", "-o", tmp_path / "cut.png")
    tool("render", plate, "--frame", 4, "--palette", 3, "--range", "2000:2600", "-o", tmp_path / "range.png")
    hot = thermokit.Palette("hot metal")
    np.testing.assert_array_equal(hot.apply(film[1], bits=14), read_png(tmp_path / "cut.png"))
    np.testing.assert_array_equal(thermokit.Palette(3).apply(film[4], range=(2000, 2600), bits=14),
                                  read_png(tmp_path / "range.png"))
    listed = tool("palette", "list").stdout.splitlines()
    assert [line.split(None, 1)[1].rsplit(None, 2)[0].strip() for line in listed] == list(thermokit.palettes().values())
    assert (hot.number, hot.name, len(hot)) == (8, "Hot Metal", 256)
    np.testing.assert_array_equal(thermokit.Palette("Hot Metal", reversed=True).colors, hot.colors[::-1])
    assert tuple(thermokit.Palette("Grey").colors[-1]) == (254, 254, 254)
    # Values: spread between the range's bounds; NaN takes the first colour.
    values = np.array([[np.nan, 10.0, 20.0, 30.0]])
    rgb = hot.apply(values, range=(10.0, 30.0))
    assert (tuple(rgb[0, 0]), tuple(rgb[0, 1]), tuple(rgb[0, 3])) == (
        tuple(hot.colors[0]), tuple(hot.colors[0]), tuple(hot.colors[-1]))
    with pytest.raises(ValueError, match="unknown palette \"Lava\""):
        thermokit.Palette("Lava")


def test_lockin_and_the_simulated_camera_match_the_tool(films, tmp_path):
    sample = films["lockin"]
    tool("lockin", sample, "--frequency", 5, "--filter", "median", "-o", tmp_path / "r")
    module, phase = thermokit.lockin(thermokit.open(sample), 5, filter="median")
    np.testing.assert_array_equal(module, thermokit.open(tmp_path / "r_module.film")[0])
    np.testing.assert_array_equal(phase, thermokit.open(tmp_path / "r_phase.film")[0])
    again = thermokit.lockin(thermokit.open(sample)[:], 5, frame_rate=40, filter="median")
    np.testing.assert_array_equal(again[0], module)
    with pytest.raises(ValueError, match="frame_rate: needed"):
        thermokit.lockin(thermokit.open(sample)[:], 5)

    tool("simulate", "--scene", "plate", "--size", "20x10", "--count", 3, "--seed", 9, "--defects", "--truth",
         tmp_path / "tool.truth.film", "-o", tmp_path / "tool.film")
    film, truth = thermokit.simulate("plate", size=(20, 10), frames=3, seed=9, defects=True, truth=True,
                                     path=tmp_path / "py.film")
    assert (tmp_path / "py.film").read_bytes() == (tmp_path / "tool.film").read_bytes()
    assert open(truth.path, "rb").read() == (tmp_path / "tool.truth.film").read_bytes()
    temporary, = [thermokit.simulate(size=(8, 4), frames=1)]
    path = temporary.path
    temporary.close()
    with pytest.raises(FileNotFoundError):
        thermokit.open(path)
