#!/usr/bin/env python3
"""Writes a test lab's pile of bugreport zips: each holds dumpstate's header (with a build
fingerprint), a SYSTEM LOG section with one session of the simulator's own run (a seed of its
own, debug or default level) among other processes' lines, and a filler section; one zip is cut
short, as a transfer that broke. Used by scripts/pile-speed.sh and the pile's test.

Usage: make-bugreport-pile.py SIM OUT_DIR COUNT [FRAMES]
"""
import os
import subprocess
import sys
import zipfile

NOISE = ["{t}  987  1001 I ActivityManager: Displayed com.example.camera/.Main: +412ms",
         "{t}  612   640 D SurfaceFlinger: frame presented, vsync 16.6 ms",
         "{t} 1234  1299 W CameraService: request queue depth 7",
         "{t}  400   400 I wificond: station scan done, 14 results"]
BUILDS = ["ryx/lab_a/lab:14/UQ1A.240101.001/1100:userdebug/dev-keys",
          "ryx/lab_a/lab:14/UQ1A.240108.002/1107:userdebug/dev-keys",
          "ryx/lab_b/lab:14/UQ1A.240108.002/1107:user/release-keys"]


def library_log(sim, seed, frames, level):
    run = subprocess.run([sim, "run", "--seed", str(seed), "--frames", str(frames), "--log", level,
                          "--write-logcat", "/dev/stdout", "--no-progress"],
                         check=True, capture_output=True, text=True)
    return run.stdout.splitlines()


def bugreport(lines, seed):
    out = ["=" * 56, "== dumpstate: 2026-11-25 23:%02d:00" % (seed % 60), "=" * 56, "",
           "Build: UQ1A.%d" % seed, "Build fingerprint: '%s'" % BUILDS[seed % len(BUILDS)],
           "------ UPTIME (uptime) ------", "up 0 weeks, 0 days, 3 hours",
           "------ SYSTEM LOG (logcat -v threadtime -v printable -v uid -d *:v) ------"]
    for i, line in enumerate(lines):
        out.append(line)
        stamp = line[:18]
        if i % 2 == 0 and stamp[:2].isdigit():
            out.append(NOISE[i % len(NOISE)].format(t=stamp))
    out.append("------ DUMPSYS (dumpsys) ------")
    out.extend("  service %d: state ok, %d clients" % (n, n % 7) for n in range(4000))
    return "\n".join(out) + "\n"


def main():
    sim, out_dir, count = sys.argv[1], sys.argv[2], int(sys.argv[3])
    frames = int(sys.argv[4]) if len(sys.argv) > 4 else 600
    os.makedirs(out_dir, exist_ok=True)
    for seed in range(1, count + 1):
        level = "warn" if seed % 4 == 0 else "debug"
        length = frames // 2 + (seed * 37) % (frames // 2 + 1)  # sessions of other lengths
        text = bugreport(library_log(sim, seed, length, level), seed)
        name = "bugreport-lab-%03d" % seed
        path = os.path.join(out_dir, name + ".zip")
        with zipfile.ZipFile(path, "w", zipfile.ZIP_DEFLATED) as z:
            z.writestr("main_entry.txt", name + ".txt")
            z.writestr(name + ".txt", text)
        if seed == count // 2:  # a transfer that broke
            size = os.path.getsize(path)
            with open(path, "r+b") as f:
                f.truncate(size // 2)


if __name__ == "__main__":
    main()
