"""The Python package beside NumPy doing the same work, in the same run.

    PYTHONPATH=build/release/python /usr/bin/python3 bench/python/bench_python.py [--frames N] [--dir D]

Prints, for each case, the best time of a few repeats, the bytes per second
of input and the ratio against NumPy (above 1: thermokit is faster):

  read     every frame of a 640 x 512 film into one array (film[:])
           against numpy.fromfile of the same file (page cache warm)
  convert  one frame to temperatures (Calibration.to_temperature at the
           film's depth) against NumPy's gather lut[levels] through the
           same table (one value per level of that depth)
  stats    statistics of one frame (minimum, maximum, mean, deviation)
           against numpy.std alone
  threads  two films read and converted frame by frame (into arrays kept
           for the purpose) by two threads, against the same work done one
           after the other (a time ratio: below 1 is better); beside it the
           same ratio for hashlib's SHA-256 (which runs without the GIL),
           what the machine allows at the moment
  whole    two whole-film calls (thermokit.stats in temperatures) on two
           threads, each with the library's default for threads other than
           the main one (one thread each), then each forced to every core
           (thermokit.threads), against the same two calls one after the
           other from the main thread (every core each)
"""
import argparse
import hashlib
import os
import shutil
import tempfile
import threading
import time

import numpy as np

import thermokit


def best(fn, repeat):
    times = []
    for _ in range(repeat):
        t = time.perf_counter()
        fn()
        times.append(time.perf_counter() - t)
    return min(times)


def loop(fn, n):
    """fn() n times, each result dropped at once."""
    def run():
        for _ in range(n):
            fn()
    return run


def line(name, nbytes, ours, theirs, what):
    print(f"{name:8s} thermokit {nbytes / ours / 1e9:7.2f} GB/s   {what:22s} {nbytes / theirs / 1e9:7.2f} GB/s"
          f"   ratio {theirs / ours:5.2f}")


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--frames", type=int, default=1000)
    parser.add_argument("--dir", default=None, help="folder for the films (default: a temporary one)")
    parser.add_argument("--repeat", type=int, default=5)
    args = parser.parse_args()
    folder = tempfile.mkdtemp(prefix="thermokit-bench-", dir=args.dir)
    try:
        # Films of the simulated camera: 640 x 512, 14 bits, with their law.
        first = thermokit.simulate("plate", size=(640, 512), frames=args.frames, path=os.path.join(folder, "a.film"))
        second = thermokit.simulate("plate", size=(640, 512), frames=args.frames, seed=2,
                                    path=os.path.join(folder, "b.film"))
        law = first.law
        frame = first[args.frames // 2]
        pixel_bytes = first.shape[0] * first.shape[1] * first.shape[2] * 2

        first[:]  # warm the page cache
        np.fromfile(first.path, dtype=np.uint8)
        ours = best(lambda: first[:], args.repeat)
        theirs = best(lambda: np.fromfile(first.path, dtype=np.uint8), args.repeat)
        line("read", pixel_bytes, ours, theirs, "numpy.fromfile")

        bits = first.bits
        lut = law.to_temperature(np.arange(1 << bits, dtype=np.uint16), bits=bits)
        # The same numbers both ways, NaN where the law cannot convert.
        np.testing.assert_array_equal(law.to_temperature(frame, bits=bits), lut[frame])
        n = 200
        ours = best(loop(lambda: law.to_temperature(frame, bits=bits), n), args.repeat) / n
        theirs = best(loop(lambda: lut[frame], n), args.repeat) / n
        line("convert", frame.nbytes, ours, theirs, "numpy lut[levels]")

        ours = best(loop(lambda: thermokit.statistics(frame), n), args.repeat) / n
        theirs = best(loop(lambda: np.std(frame), n), args.repeat) / n
        line("stats", frame.nbytes, ours, theirs, "numpy.std")

        def work(film):
            law = film.law
            levels = np.empty(film.shape[1:], np.uint16)
            celsius = np.empty(film.shape[1:], np.float32)
            for k in range(len(film)):
                film.read(k, out=levels)
                law.to_temperature(levels, bits=film.bits, out=celsius)

        tries = max(5, args.repeat)
        serial = best(lambda: (work(first), work(second)), tries)

        def parallel(target, *extra):
            threads = [threading.Thread(target=target, args=(f, *extra)) for f in (first, second)]
            for t in threads:
                t.start()
            for t in threads:
                t.join()

        two = best(lambda: parallel(work), tries)
        data = bytes(64 << 20)

        def digest():
            hashlib.sha256(data).digest()

        reference = best(lambda: (digest(), digest()), tries)

        def digests():
            threads = [threading.Thread(target=digest) for _ in range(2)]
            for t in threads:
                t.start()
            for t in threads:
                t.join()

        reference_two = best(digests, tries)
        print(f"threads  two threads {two:.3f} s, one after the other {serial:.3f} s   time ratio {two / serial:5.2f}"
              f"   (sha256 alike: {reference_two / reference:5.2f})")

        def whole(film, count=None):
            with thermokit.threads(count):
                thermokit.stats(film, embedded=True)

        cores = thermokit.get_threads()
        whole_serial = best(lambda: (whole(first), whole(second)), args.repeat)
        whole_default = best(lambda: parallel(whole), args.repeat)
        whole_forced = best(lambda: parallel(whole, cores), args.repeat)
        print(f"whole    two threads {whole_default:.3f} s (one library thread each), {whole_forced:.3f} s ({cores} each);"
              f" one after the other {whole_serial:.3f} s ({cores} each)   time ratios {whole_default / whole_serial:5.2f},"
              f" {whole_forced / whole_serial:5.2f}")
        first.close()
        second.close()
    finally:
        shutil.rmtree(folder, ignore_errors=True)


if __name__ == "__main__":
    main()
