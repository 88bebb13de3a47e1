"""thermokit: thermal-infrared films, NUC tables, bad pixels, calibrations and
palettes, with NumPy arrays in and out.

    import thermokit
    with thermokit.open("run.film") as film:
        frame = film[10]                                   # uint16, lines x points
        celsius = film.law.to_temperature(frame, bits=film.bits)
        picture = thermokit.Palette("Hot Metal").apply(celsius)

Errors are OSError (FileNotFoundError) when the file system fails, ValueError
when a file or an argument is not what is expected, IndexError for frames
out of range and TypeError for arrays of the wrong type; their text is the
thermokit tool's error line ("file NAME: what is wrong").
"""
import contextlib as _contextlib
import os as _os
import tempfile as _tempfile

from ._thermokit import (
    BadPixels,
    Calibration,
    Film,
    Nuc,
    Palette,
    Statistics,
    Writer,
    __version__,
    cameras,
    correct,
    create,
    export,
    get_threads,
    lockin,
    open,
    palettes,
    record,
    render,
    set_threads,
    statistics,
    stats,
    write,
)
from ._thermokit import _check_conversion, _check_picture, _restore_this_thread, _set_this_thread, _simulate

__all__ = [
    "BadPixels", "Calibration", "Film", "Nuc", "Palette", "Statistics", "Writer",
    "cameras", "correct", "create", "export", "get_threads", "lockin", "open", "palettes", "record", "render",
    "set_threads", "simulate", "statistics", "stats", "threads", "write",
]


@_contextlib.contextmanager
def threads(count):
    """Whole-film calls made from this thread inside the block use `count`
    threads (None: the default of this thread, see set_threads); other
    threads are not affected, and the count before the block comes back
    after it.

        with thermokit.threads(2):
            thermokit.export(film, "run.npy", embedded=True)
    """
    previous = _set_this_thread(count)
    try:
        yield
    finally:
        _restore_this_thread(previous)


def _temporary_film(prefix):
    fd, path = _tempfile.mkstemp(prefix=prefix, suffix=".film")
    _os.close(fd)
    return path


def simulate(scene="uniform", size=(640, 512), frames=10, seed=1, *, path=None, truth=False,
             bits=14, frame_rate=100.0, defects=False, temperature=30.0, left=15.0, right=55.0,
             spot=50.0, move=0.0, period=16, amplitude=0.6):
    """A film of the simulated camera (the tool's `simulate` command).

    scene: "uniform" (a black body at `temperature` degrees Celsius), "plate"
    (from `left` to `right` degrees with a hot spot `spot` kelvin above it,
    moving `move` pixels a frame) or "lockin" (a sample heated every `period`
    frames by `amplitude` kelvin around `temperature`). size is (width,
    height). defects adds dead, hot and noisy pixels.

    Returns the Film, opened; without `path` it lives in a temporary file
    removed when the film is closed. With truth=True, returns (film, truth):
    truth is a film of doubles of the true scene temperatures in degrees
    Celsius, one image per frame (beside path, as PATH.truth.film, or
    temporary).
    """
    width, height = size
    temporary = path is None
    film_path = _temporary_film("thermokit-sim-") if temporary else _os.fspath(path)
    truth_path = ""
    if truth:
        truth_path = _temporary_film("thermokit-truth-") if temporary else film_path + ".truth.film"
    try:
        _simulate(film_path, truth_path, scene, int(width), int(height), int(frames), int(bits),
                  float(frame_rate), int(seed), bool(defects), float(temperature), float(left),
                  float(right), float(spot), float(move), int(period), float(amplitude))
    except BaseException:
        if temporary:
            for p in (film_path, truth_path):
                if p and _os.path.exists(p):
                    _os.remove(p)
        raise
    films = [open(film_path)] + ([open(truth_path)] if truth else [])
    if temporary:
        for f in films:
            f._delete_on_close()
    return (films[0], films[1]) if truth else films[0]
