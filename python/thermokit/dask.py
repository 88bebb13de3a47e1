"""Films as Dask arrays: lazy, in chunks of frames, read (and converted) by
whichever worker computes them, on this machine or on a cluster.

    import thermokit.dask
    levels = thermokit.dask.film_array("run.film")           # (frames, lines, points)
    noise = levels.std(axis=0).compute()                      # a noise map
    celsius = thermokit.dask.temperatures("run.film", emissivity=0.95)
    profile = celsius.mean(axis=(1, 2)).compute()             # one mean per frame

Each chunk is a range of frames read through thermokit.open on the worker,
so a worker needs the package and the film at the same path (a shared
folder on a cluster). Paths are made absolute when the array is made.

Metadata comes alongside in the array's `attrs` dictionary: path, header,
times (seconds since the first frame), bits, frame_rate, and for
temperatures their unit.
"""
import operator
import os
import threading

import dask.array as _da
import numpy as _np
from dask.base import tokenize as _tokenize

import thermokit as _tk

__all__ = ["film_array", "temperatures"]


def _frame_chunks(count, chunk_frames):
    try:
        chunk_frames = operator.index(chunk_frames)
    except TypeError:
        raise TypeError(f"chunk_frames {chunk_frames!r}: a whole number of frames expected") from None
    if chunk_frames < 1:
        raise ValueError(f"chunk_frames {chunk_frames}: a whole number of frames, 1 or more, expected")
    sizes = [chunk_frames] * (count // chunk_frames)
    if count % chunk_frames or not sizes:
        sizes.append(count % chunk_frames)
    return tuple(sizes)


def _describe(path):
    """The film's shape, dtype and metadata, read once where the array is made."""
    with _tk.open(path) as film:
        return film.shape, film.dtype, {
            "path": path, "header": film.header, "times": film.times, "bits": film.bits,
            "frame_rate": film.frame_rate,
        }


def _graph_array(path, chunk_frames, name, task, dtype, extra=()):
    path = os.path.abspath(os.fspath(path))
    shape, film_dtype, attrs = _describe(path)
    frames, lines, points = shape
    chunks = _frame_chunks(frames, chunk_frames)
    # The file's identity (size, modification time) is part of the name:
    # a film rewritten gives a new array, never stale chunks.
    st = os.stat(path)
    name = f"{name}-{_tokenize(path, st.st_size, st.st_mtime_ns, chunks, *extra)}"
    dsk, start = {}, 0
    for i, size in enumerate(chunks):
        dsk[(name, i, 0, 0)] = (task, path, start, start + size) + tuple(extra)
        start += size
    dtype = film_dtype if dtype is None else _np.dtype(dtype)
    array = _da.Array(dsk, name, chunks=(chunks, (lines,), (points,)), dtype=dtype,
                      meta=_np.empty((0, 0, 0), dtype))
    array.attrs = attrs
    return array


def _read_frames(path, start, stop):
    with _tk.open(path) as film:
        return film[start:stop]


def film_array(path, chunk_frames=64):
    """The film at path as a lazy dask array (frames, lines, points) of its
    dtype (uint16 levels or float64 values), chunk_frames frames a chunk.
    `attrs` holds path, header, times, bits and frame_rate."""
    return _graph_array(path, chunk_frames, "thermokit-film", _read_frames, None)


# Calibrations opened by this process, by what they are made of: each keeps
# the level tables of its conversions, made once for every chunk after.
_calibrations = {}
_calibrations_lock = threading.Lock()


def _calibration(spec, film):
    key = spec if spec is not None else ("law", film.path, os.stat(film.path).st_mtime_ns)
    with _calibrations_lock:
        cal = _calibrations.get(key)
        if cal is None:
            if spec is None:
                cal = film.law
                if cal is None:
                    raise ValueError(f"file {film.path}: the film carries no radiometric law (give a calibration)")
            else:
                kind, path, camera_temperature = spec
                cal = _tk.Calibration.load(path, kind=kind)
                if camera_temperature is not None:
                    cal.camera_temperature = camera_temperature
            if len(_calibrations) > 64:
                _calibrations.clear()
            _calibrations[key] = cal
        return cal


def _convert_frames(path, start, stop, spec, unit, parameters):
    with _tk.open(path) as film:
        levels = film[start:stop]
        cal = _calibration(spec, film)
        # A calibration file takes its defaults from the film's header, as the tool does; a law knows its film.
        return cal.to_temperature(levels, bits=film.bits, unit=unit, film=None if spec is None else film,
                                  **dict(parameters))


def _calibration_spec(calibration):
    if calibration is None:
        return None
    if isinstance(calibration, _tk.Calibration):
        if calibration.kind == "law":
            raise ValueError("calibration: a film's law converts that film only; pass None for each film's own law")
        if calibration.kind == "compensated":
            raise ValueError("calibration: a compensated calibration depends on its film; not for dask arrays")
        camera = calibration.camera_temperature if calibration.kind == "extended" else None
        return (calibration.kind, os.path.abspath(os.fspath(calibration.path)), camera)
    return ("curve", os.path.abspath(os.fspath(calibration)), None)


_PARAMETERS = ("emissivity", "reflected", "atmosphere", "transmission", "distance")


def temperatures(path, calibration=None, chunk_frames=64, unit="degC", **object_parameters):
    """The film's levels as temperatures, a lazy float32 dask array (NaN where
    a level is not converted), exactly as `thermokit export --format npy`
    writes them with the same options.

    calibration: None for the film's own radiometric law (--embedded), a
    calibration file or a Calibration loaded from one (--calib). Object
    parameters: emissivity, reflected (degC), atmosphere (degC),
    transmission or distance (m); those not given come from the film's
    header. unit: "degC" or "K" (--kelvin).
    """
    unknown = sorted(set(object_parameters) - set(_PARAMETERS))
    if unknown:
        raise TypeError(f"temperatures() got an unexpected keyword argument '{unknown[0]}'")
    if unit not in ("degC", "K"):
        raise ValueError(f'unit {unit}: "degC" or "K" expected')
    spec = _calibration_spec(calibration)
    parameters = tuple(sorted((k, float(v)) for k, v in object_parameters.items() if v is not None))
    # Checked here, on the first frame, so that a wrong option fails now and not in a worker.
    _convert_frames(os.path.abspath(os.fspath(path)), 0, 0, spec, unit, parameters)
    array = _graph_array(path, chunk_frames, "thermokit-temperatures", _convert_frames, _np.float32,
                         (spec, unit, parameters))
    array.attrs["unit"] = unit
    return array
