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
# The call a pipeline makes: the helper createInstance gives, its trace points' check included
# (the name also holds SyncHelper::syncResultCheck, which it calls: the two must not both count).
SYNC_RESULT_CHECK = 'TracedSyncHelper::syncResultCheck('
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

REQUIRED_WRITES = 'RequiredFrame::writeFrame('
MUTEX = ['pthread_mutex_lock@@GLIBC_2.2.5', 'pthread_mutex_unlock@@GLIBC_2.2.5']
CONDITION = ['pthread_cond_wait@@GLIBC_2.3.2', 'pthread_cond_broadcast@@GLIBC_2.3.2']
HEAP = ['operator new(unsigned long)', 'operator delete(void*)']
MASTER_UPDATE = 'MasterCamSyncDataUpdater::update('
# The queue's own steps (inclusive, so a step's mutexes and heap use are counted in it too).
QUEUE_STEPS = [
    ('taking the frame\'s record (first camera)', 'SyncQueue::createSyncElement('),
    ('  resetting a reused record', 'SyncQueue::reuseOrMakeElement('),
    ('  reading the sync ids and master/slave list', 'SyncQueue::fillSyncLists('),
    ('merging the later cameras', 'SyncQueue::updateSyncElement('),
    ('arrival record', 'SyncQueue::updateArrivedSyncMap('),
    ('sequence check', 'SyncQueue::sequenceCheck('),
    ('drop check when leaving', 'SyncQueue::isNeedDropFrame('),
    ('removal when leaving (the record retired)', 'SyncQueue::retireItem('),
]


def parse(path):
    """Returns (phase name, {function name: inclusive instructions}); the inclusive counts of calls
    by caller and callee are kept under the key (caller, callee)."""
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
                if pending_call:
                    pair = (current, callee)
                    inclusive[pair] = inclusive.get(pair, 0) + int(parts[1])
            pending_call = False
    return phase, inclusive


def count(inclusive, needle):
    # A virtual thunk's count includes the function it jumps to, unless that was inlined into it.
    funcs = {k: v for k, v in inclusive.items() if isinstance(k, str)}
    direct = sum(v for k, v in funcs.items() if needle in k and 'thunk' not in k)
    return direct or sum(v for k, v in funcs.items() if needle in k)


def exact(inclusive, names):
    return sum(inclusive.get(name, 0) for name in names)


def called_from(inclusive, caller_needle, names):
    """The inclusive count of calls to `names` made by functions whose name holds the needle."""
    return sum(v for k, v in inclusive.items()
               if isinstance(k, tuple) and caller_needle in k[0] and k[1] in names)


def side_by_side(phases, frames, per):
    """Rows (label, library, baseline) that add up to each side's whole frame."""
    lib, base = phases['lib3'], phases['required3']
    mutex_lib, mutex_base = exact(lib, MUTEX) / frames, exact(base, MUTEX) / frames
    cond_lib, cond_base = exact(lib, CONDITION) / frames, exact(base, CONDITION) / frames
    mutex_updaters = called_from(lib, MASTER_UPDATE, MUTEX) / frames
    frame, enque, callback = per('lib3', SYNC_RESULT_CHECK), per('lib3', ENQUE), per('lib3', ON_EVENT)
    lists = per('lib3', 'SyncQueue::fillSyncLists(')
    required, writes = per('required3', REQUIRED_FRAME), per('required3', REQUIRED_WRITES)
    return [
        ('each camera\'s own reads (path tags, verdict)', frame - enque,
         required - writes - mutex_base - cond_base),
        ('the frame\'s lists, judgement and writes', lists + callback - mutex_updaters, writes),
        ('mutex lock and unlock', mutex_lib, mutex_base),
        ('condition wait and wake-up', cond_lib, cond_base),
        ('the queue\'s records and checks', enque - callback - lists - (mutex_lib - mutex_updaters)
         - cond_lib, 0),
    ]


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
    record = per('single', 'SyncQueue::genSyncData(')
    updaters = per('single', 'SyncHelper::updateData(')
    print('    path tags and the thread\'s record              %8.0f' % (single - record - updaters))
    print('    the frame\'s record (lists, own entries)        %8.0f' % record)
    print('    updaters                                        %8.0f' % updaters)
    for label, needle in UPDATERS:
        print('      %-47s%8.0f' % (label, per('single', needle)))
    print('  single camera, required metadata edits             %8.0f' % single_req)
    print('a 3-sensor frame side by side (per frame)          library  baseline')
    for label, mine, theirs in side_by_side(phases, frames, per):
        print('  %-49s%8.0f  %8.0f' % (label, mine, theirs))
    print('  heap (new and delete, inside the rows above)     %8.0f  %8.0f'
          % (exact(phases['lib3'], HEAP) / frames, exact(phases['required3'], HEAP) / frames))
    print('  queue steps (inclusive of their locks and heap use)')
    for label, needle in QUEUE_STEPS:
        print('    %-47s%8.0f' % (label, per('lib3', needle)))
    if 'crops3' in phases:
        crops = per('crops3', 'SyncHelper::getSensorCropRegion(')
        sets = per('crops3', 'SyncHelper::setSensorCropRegion(')
        print('crop path per 3-sensor frame (getSensorCropRegion x3, a new set every 30 frames)')
        print('  getSensorCropRegion, 3 calls                       %8.0f' % crops)
        print('  setSensorCropRegion, amortised                     %8.0f' % sets)
    print('RATIO 3-sensor frame / required-work baseline = %.2f (goal <= 1.5)' % (lib / required))
    print('RATIO 3-sensor frame instructions = %.0f (goal <= 9000)' % lib)
    print('RATIO single camera / its metadata edits = %.2f (goal <= 1.3)' % (single / single_req))


if __name__ == '__main__':
    main()
