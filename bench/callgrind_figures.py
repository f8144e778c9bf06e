#!/usr/bin/env python3
"""Prints the instruction figures of synchelper_callgrind's dumps (see bench/callgrind.sh).

Usage: callgrind_figures.py FRAMES DUMP...

Each dump is one phase (its name is the dump's trigger). A function's inclusive count is the sum,
over every file its code was inlined from, of its own instructions and of the inclusive counts
of the calls it makes; divided by the phase's frames it gives instructions per frame.
"""
import re
import sys

# Functions counted, by a unique part of their demangled name.
SYNC_RESULT_CHECK = 'SyncHelper::syncResultCheck('
ENQUE = 'SyncQueue::enque('
ON_EVENT = 'SyncQueue_ResultCheck_Cb::onEvent('
UPDATERS = [
    ('timestamp updater', 'TimestampSyncDataUpdater::update('),
    ('master-camera updater', 'MasterCamSyncDataUpdater::update('),
    ('active updater', 'ActiveSyncDataUpdater::update('),
    ('physical-metadata updater', 'PhysicalMetaSyncDataUpdater::update('),
]
REQUIRED_FRAME = 'RequiredFrame::run('
REQUIRED_SINGLE = 'requiredSingleFrame('


def parse(path):
    """Returns (phase name, {function name: inclusive instructions})."""
    names = {}
    inclusive = {}
    phase = None
    current = None
    callee = None
    pending_call = False
    with open(path) as f:
        for line in f:
            line = line.rstrip('\n')
            if line.startswith('desc: Trigger: Client Request: '):
                phase = line.split(': ', 2)[2].replace('Client Request: ', '')
                continue
            m = re.match(r'(c?fn)=\((\d+)\)(?: (.*))?$', line)
            if m:
                kind, ident, name = m.groups()
                if name is not None:
                    names[ident] = name
                if kind == 'fn':
                    current = names[ident]
                else:
                    callee = names[ident]
                continue
            if line.startswith('calls='):
                pending_call = True
                continue
            if current is None or not line or not (line[0].isdigit() or line[0] in '+-*'):
                continue
            parts = line.split()
            if len(parts) >= 2:
                # A cost line: the function's own cost, or the inclusive cost of the call above.
                # A self-recursive call is already counted in the caller's own cost.
                if not (pending_call and callee == current):
                    inclusive[current] = inclusive.get(current, 0) + int(parts[1])
            pending_call = False
    return phase, inclusive


def count(inclusive, needle):
    # A virtual thunk's count includes the function it jumps to, unless that was inlined into it.
    direct = sum(v for k, v in inclusive.items() if needle in k and 'thunk' not in k)
    return direct or sum(v for k, v in inclusive.items() if needle in k)


def main():
    frames = int(sys.argv[1])
    phases = dict(parse(p) for p in sys.argv[2:])
    missing = [p for p in ('lib3', 'required3', 'single', 'single_req') if p not in phases]
    if missing:
        sys.exit('callgrind_figures: missing phases: ' + ', '.join(missing))
    per = lambda phase, needle: count(phases[phase], needle) / frames
    lib = per('lib3', SYNC_RESULT_CHECK)  # the three calls of a frame together
    enque = per('lib3', ENQUE)
    callback = per('lib3', ON_EVENT)
    required = per('required3', REQUIRED_FRAME)
    single = per('single', SYNC_RESULT_CHECK)
    single_req = per('single_req', REQUIRED_SINGLE)
    print('instructions per frame (callgrind, %d frames per phase, logging gated off)' % frames)
    print('  3-sensor frame through syncResultCheck (3 calls)   %8.0f' % lib)
    print('    facade (syncResultCheck outside enque)           %8.0f' % (lib - enque))
    print('    queue work (enque without the callback)          %8.0f' % (enque - callback))
    print('    callback (updaters under both locks)             %8.0f' % callback)
    for label, needle in UPDATERS:
        print('      %-47s%8.0f' % (label, per('lib3', needle)))
    print('  required-work baseline, 3 sensors                  %8.0f' % required)
    print('  single camera, syncResultCheck                     %8.0f' % single)
    print('  single camera, required metadata edits             %8.0f' % single_req)
    print('RATIO 3-sensor frame / required-work baseline = %.2f (goal <= 1.5)' % (lib / required))
    print('RATIO 3-sensor frame instructions = %.0f (goal <= 9000)' % lib)
    print('RATIO single camera / its metadata edits = %.2f (goal <= 1.3)' % (single / single_req))


if __name__ == '__main__':
    main()
