#!/usr/bin/env python3
"""Writes the seed corpus of synchelper_fuzz into fuzz/corpus/.

Each seed is a short scenario encoded in the harness's input layout (synchelper_fuzz.cpp:
header, then one opcode byte per operation followed by its arguments). Keep the encoders here in
step with the decoders there. Usage: fuzz/make_corpus.py [out-dir]
"""
import os
import struct
import sys

# HAL control tags in the order of kHalControlTags; the bit index selects the tag.
ID, REQUIRED, ENABLE, TOLERANCE, MODE, NEED_SYNC, MS_LIST, REAL_MASTER, FD_CONTROL, CROP = range(10)
I32, I64, U8, MRECT, FLOAT = range(5)
HAL_TYPES = [I32, I32, I32, I64, I32, I32, I32, I32, I32, MRECT]

OP_CHECK, OP_GROUP, OP_UPDATE, OP_DROP, OP_FLUSH, OP_DROP_SENSOR, OP_SET_CROP, OP_GET_CROP, \
    OP_SWITCH, OP_FD, OP_LICENSE = range(11)

BASE_NS = 1000000000000


def u8(v):
    return struct.pack('<B', v & 0xff)


def u16(v):
    return struct.pack('<H', v & 0xffff)


def u32(v):
    return struct.pack('<I', v & 0xffffffff)


def u64(v):
    return struct.pack('<Q', v & 0xffffffffffffffff)


def sensor(v):
    """A sensor id or any int32 value; -1..6 take one byte."""
    return u8(v + 1) if -1 <= v <= 6 else u8(0xff) + u32(v)


def frame_no(v):
    return u8(v + 8) if -8 <= v <= 55 else u8(0xff) + u32(v)


def ts(ns):
    """A timestamp: 0, near BASE_NS in 10 us or 1 ms steps, or a raw 64-bit value."""
    if ns == 0:
        return u8(0)
    d = ns - BASE_NS
    if d % 10000 == 0 and -32768 <= d // 10000 <= 32767:
        return u8(2) + u16(d // 10000)
    if d % 1000000 == 0 and -32768 <= d // 1000000 <= 32767:
        return u8(3) + u16(d // 1000000)
    return u8(1) + u64(ns)


def item(typ, v):
    if typ == I32:
        return sensor(v)
    if typ == I64:
        return u8(0) + u16(v) if 0 <= v <= 0xffff else u8(1) + u64(v)
    if typ == U8:
        return u8(v)
    if typ == MRECT:
        return b''.join(u16(x) for x in v)
    return u16(int(round(v * 100)))  # FLOAT


def tag(typ, items):
    """items: [] (empty entry), a list of values, or ('wrong', other_type, value)."""
    if isinstance(items, tuple):
        return u8(3) + u8(items[1]) + item(items[1], items[2])
    if not items:
        return u8(0)
    if len(items) == 1:
        return u8(1) + item(typ, items[0])
    return u8(2) + u8(len(items) - 1) + b''.join(item(typ, v) for v in items)


def frame(m_id, fno, hal=None, req=0, sof=0, exp=0, intent=None, no_app=False, null_hal=False,
          null_hal_dyn=False, null_app_dyn=False, master=False, preset_result=None):
    """One camera's frame result; hal maps tag index to items (see tag())."""
    flags = 0
    if no_app:
        flags |= 0x01
    if intent is not None:
        flags |= 0x02
    if null_hal:
        flags |= 0x04
    if null_hal_dyn:
        flags |= 0x08
    if null_app_dyn:
        flags |= 0x10
    if master:
        flags |= 0x20
    if preset_result is not None:
        flags |= 0x40
    out = sensor(m_id) + u16(req) + frame_no(fno) + ts(sof) + ts(exp) + u8(flags)
    if not no_app and intent is not None:
        out += tag(U8, [intent])
    if not null_hal:
        hal = hal or {}
        out += u16(sum(1 << i for i in hal))
        for i in sorted(hal):
            out += tag(HAL_TYPES[i], hal[i])
    if preset_result is not None:
        out += u8(preset_result)
    return out


def header(sensors=((0, (0, 0, 4000, 3000), 4.7), (1, (0, 0, 4000, 3000), 2.2),
                    (2, (8, 8, 3264, 2448), 6.0)),
           log=0, crop_prop=0, updater_log=0, allow_crop=True, key=7):
    out = u8(log) + u8(crop_prop | (updater_log << 2) | (0x10 if allow_crop else 0))
    out += u8(len(sensors))
    for sid, rect, focal in sensors:
        out += u8(sid) + item(MRECT, rect) + item(FLOAT, focal)
    return out + u16(key)


def op(code, *parts):
    return u8(code) + b''.join(parts)


def check(f, null_output=False):
    return op(OP_CHECK, f, u8(0 if null_output else 1))


def group(first, fno, frames):
    return op(OP_GROUP, u8(len(frames) - 2), u8(first + 1), frame_no(fno), *frames)


def sync_hal(tol_us=2000, mode=1, master=None, extra=None):
    hal = {TOLERANCE: [tol_us], MODE: [mode]}
    if master is not None:
        hal[REAL_MASTER] = [master]
    hal.update(extra or {})
    return hal


def seeds():
    s = {}
    # Cameras of one frame meeting on this one thread: the others' drops count as their
    # arrivals, the last camera completes the frame and the updaters run on its records.
    body = b''
    for fno in range(1, 6):
        body += group(0, fno, [
            frame(0, fno, sync_hal(), sof=BASE_NS + fno * 33000000, exp=BASE_NS + fno * 33000000),
            frame(1, fno, sync_hal(master=1), sof=BASE_NS + fno * 33000000 + 500000,
                  exp=BASE_NS + fno * 33000000 + 400000, master=True)])
    s['group_two_cameras'] = header() + body
    s['group_three_cameras'] = header() + group(0, 12, [
        frame(0, 12, sync_hal(tol_us=0, mode=0), sof=BASE_NS, exp=BASE_NS),
        frame(1, 12, sync_hal(tol_us=0, mode=0), sof=BASE_NS + 3000000, exp=BASE_NS),
        frame(2, 12, sync_hal(tol_us=0, mode=0, master=2), sof=BASE_NS + 10000,
              exp=BASE_NS + 10000, intent=2)])
    # Master frame and exposure order: accepted, frame inversion, still capture let through,
    # time inversion, equal exposure time accepted, master without timestamps.
    s['master_history'] = header(updater_log=2) + b''.join(
        group(0, fno, [frame(0, fno, sync_hal(master=1), sof=BASE_NS + e, exp=BASE_NS + e),
                       frame(1, fno, sync_hal(master=1), sof=sof, exp=BASE_NS + e,
                             intent=intent)])
        for fno, e, intent, sof in ((10, 5000000, 1, BASE_NS), (9, 6000000, 1, BASE_NS),
                                    (8, 6000000, 2, BASE_NS), (11, 4000000, 1, BASE_NS),
                                    (13, 6000000, 1, BASE_NS), (14, 7000000, 1, 0)))
    # Single-camera path: tags absent, empty, odd counts and wrong types.
    s['single_camera_tags'] = header() + b''.join([
        check(frame(0, 1, {}, sof=BASE_NS, exp=BASE_NS)),
        check(frame(0, 2, {ID: [1, 2]}, sof=BASE_NS, exp=BASE_NS)),
        check(frame(1, 3, {ID: [], REQUIRED: [1]}, sof=BASE_NS, exp=BASE_NS)),
        check(frame(2, 4, {REQUIRED: [1], TOLERANCE: ('wrong', FLOAT, 1.5), MODE: [1, 2, 3]},
                    sof=BASE_NS, exp=0)),
        check(frame(3, 5, {MS_LIST: [2, 0, 1], REAL_MASTER: [5]}, sof=0, exp=0, no_app=True)),
        check(frame(0, 6, null_hal=True)),
        check(frame(0, 7, {}), null_output=True),
    ])
    # Queue path edge cases: disabled sync, null result metadata, preset results.
    s['queue_path_short_cuts'] = header() + b''.join([
        check(frame(0, 3, {ID: [1], REQUIRED: [1], ENABLE: [0]})),
        check(frame(0, 4, {ID: [1], REQUIRED: [1], ENABLE: [2]})),
        check(frame(0, 5, {ID: [1], REQUIRED: [1]}, null_hal_dyn=True)),
        check(frame(0, 6, {ID: [1], REQUIRED: [1]}, null_app_dyn=True)),
        op(OP_DROP, frame(1, 7, {ID: [0], REAL_MASTER: [0]})),
        check(frame(0, 7, {ID: [1], REQUIRED: [1], ENABLE: [1]}, preset_result=2)),
    ])
    # Drops: the master drops (the frame is dropped for the others), a flush, a sensor leaves.
    s['drops_master_flush_sensor'] = header() + b''.join([
        op(OP_DROP, frame(0, 20, {ID: [0, 1, 2], REAL_MASTER: [0]})),
        check(frame(1, 20, {ID: [0, 2], REQUIRED: [1]})),
        check(frame(2, 20, {ID: [0, 1], REQUIRED: [1]})),
        op(OP_FLUSH, frame_no(21), u32(0)),
        check(frame(0, 21, {ID: [1], REQUIRED: [1]})),
        op(OP_FLUSH, frame_no(21), u32(5)),
        op(OP_DROP_SENSOR, sensor(1)),
        op(OP_DROP, frame(0, -1, {ID: [1]})),
        op(OP_DROP, frame(-1, 22, {})),
    ])
    # Fill the arrival record, drop queue and flush list past their limits.
    body = b''
    for fno in range(0, 26):
        body += op(OP_DROP, frame(1, fno, {ID: [0], REAL_MASTER: [0]}))
        body += op(OP_DROP, frame(0, fno + 26, {ID: [1, 2], REAL_MASTER: [0]}))
        body += op(OP_FLUSH, frame_no(fno), u32(0))
    body += group(0, 30, [frame(0, 30, sync_hal(), sof=BASE_NS, exp=BASE_NS),
                          frame(1, 30, sync_hal(), sof=BASE_NS, exp=BASE_NS)])
    s['limits'] = header() + body
    # Crops: a set, the sensors of synchronised frames asking, a new set in between.
    s['crops'] = header(crop_prop=2) + b''.join([
        op(OP_GET_CROP, frame(0, 1, {ID: [1]})),
        op(OP_SET_CROP, u16(5), u8(3), sensor(0), item(MRECT, (0, 0, 100, 100)),
           sensor(1), item(MRECT, (10, 10, 50, 50)), sensor(2), item(MRECT, (1, 2, 3, 4))),
        op(OP_GET_CROP, frame(0, 7, {ID: [1]})),
        op(OP_SET_CROP, u16(6), u8(1), sensor(0), item(MRECT, (5, 5, 5, 5))),
        op(OP_GET_CROP, frame(1, 7, {ID: [0]})),
        op(OP_GET_CROP, frame(2, 7, {ID: [0, 1]})),
        op(OP_GET_CROP, frame(3, 8, {})),
        op(OP_GET_CROP, frame(0, 9, {ID: [0], CROP: [(9, 9, 9, 9)]})),
    ])
    s['crops_replacement_off'] = header(crop_prop=1) + s['crops'][len(header()):]
    # The switch flag over runs of no-control frames, and face-detection control.
    s['switch_flag_and_fd'] = header() + b''.join(
        [op(OP_SWITCH, frame(0, f, {ID: [1], NEED_SYNC: [n]})) for f, n in
         ((-3, 1), (-2, 1), (-1, 1), (-5, 1), (-3, 1), (-2, 0), (-1, 1), (0, 1), (5, 1))] +
        [op(OP_FD, u8(0), u8(0)), op(OP_FD, u8(1), u8(0)), op(OP_FD, u8(1), u8(1), tag(I32, [])),
         op(OP_FD, u8(1), u8(1), tag(I32, [0])), op(OP_FD, u8(1), u8(1), tag(I32, [-1])),
         op(OP_FD, u8(1), u8(1), tag(I32, [3, 0])),
         op(OP_FD, u8(1), u8(1), tag(I32, ('wrong', FLOAT, 2.0))),
         op(OP_LICENSE, u32(0), u32(-1))])
    # updateData on hand-made SyncData: several cameras' records, which on one thread only this
    # call can assemble. Timestamps in and out of tolerance (both modes), a missing timestamp,
    # the first target without a record, empty targets, targets absent from the maps, all masks.
    def two_cams(tol_us, mode, sof2, sof1=BASE_NS):
        return (frame(0, 4, sync_hal(tol_us=tol_us, mode=mode, master=2), sof=sof1, exp=sof1),
                frame(2, 4, {}, sof=sof2, exp=sof2))

    def update(mask, targets, frames, where=3):
        out = op(OP_UPDATE, u8(mask), frame_no(4), u16(1), u8(len(targets)),
                 *[sensor(t) for t in targets], u8(1), sensor(2), u8(len(frames)))
        for i, f in enumerate(frames):
            out += f + u8(where) + sensor([0, 2, 5][i])
        return out

    body = b''
    for mask in (0, 1, 2, 3, 4, 8, 15, 16, 0xff):
        body += update(mask, [0, 2], two_cams(100, 1, BASE_NS + 200000))
    body += update(15, [0, 2], two_cams(1999, 1, BASE_NS + 2000000))   # out of sync, mode 1
    body += update(15, [0, 2], two_cams(1999, 0, BASE_NS + 2000000))   # out of sync, mode 0
    body += update(15, [0, 2], two_cams(2000, 1, BASE_NS + 2000000))   # bound is inclusive
    body += update(15, [0, 2], two_cams(2000, 1, 0))                   # a timestamp missing
    body += update(15, [3, 0, 2], two_cams(0, 0, BASE_NS + 5000000))   # first target unknown
    body += update(15, [], [frame(5, 4, {})])                           # no targets
    body += update(15, [1], [frame(1, 4, {})], where=2)                 # outputs only
    s['update_data'] = header(sensors=((0, (0, 0, 10, 10), 1.0),)) + body
    # Every log statement enabled, sent to the unified logger (formatted, then discarded).
    s['logging_on'] = header(log=0x0e, updater_log=2) + s['group_two_cameras'][
        len(header()):] + s['drops_master_flush_sensor'][len(header()):]
    s['empty_session'] = header(sensors=()) + check(frame(0, 1, {ID: [1], REQUIRED: [1]}))
    return s


def main():
    out = sys.argv[1] if len(sys.argv) > 1 else os.path.join(os.path.dirname(__file__), 'corpus')
    os.makedirs(out, exist_ok=True)
    for name, data in sorted(seeds().items()):
        with open(os.path.join(out, name), 'wb') as f:
            f.write(data)
    print(f'{len(seeds())} seeds written to {out}')


if __name__ == '__main__':
    main()
