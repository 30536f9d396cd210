import re

import numpy as np
import pytest

import nordalib
from conftest import cpp_frames


def assert_same_frames(frames, reference):
    assert len(frames) == len(reference)
    for frame, (image, meta) in zip(frames, reference):
        assert frame.dtype == image.dtype and np.array_equal(frame, image)
        assert frame.metadata.types == {key: tag for key, (tag, _) in meta.items()}
        for key, (tag, text) in meta.items():
            if tag in ("bool", "u8", "ull", "string"):
                value = frame.metadata[key]
                assert (str(value).lower() if tag == "bool" else str(value)) == text, key


def test_frames_and_metadata_identical_to_the_cpp_decoder(demo_recording, tmp_path):
    rec = nordalib.pxm.open(demo_recording)
    reference = cpp_frames("decode", demo_recording, tmp_path / "cpp")
    assert len(rec) == len(reference) > 10 and not rec.truncated
    assert_same_frames(list(rec), reference)
    # random access lands on the same frames as reading in order
    for i in (7, 2, -1, 3, 3):
        assert np.array_equal(rec[i], reference[i][0]) and rec[i].metadata["FrameCnt"] == i % len(rec)
    assert [f.metadata["FrameCnt"] for f in rec[2:9:3]] == [2, 5, 8]
    with pytest.raises(IndexError):
        rec[len(rec)]


def test_cut_off_recordings_read_up_to_their_last_whole_frame(demo_recording, tmp_path):
    data = open(demo_recording, "rb").read()
    full = nordalib.pxm.open(demo_recording)
    start = [m.start() for m in re.finditer(b"P5\n#meta", data)]
    assert len(start) == len(full)
    for name, content, frames in (("cut.pxm", data[: start[3] + 5000], 3),
                                  ("cut-in-header.pxm", data[: start[4] + 40], 4),
                                  ("zeros.pxm", data[: start[2]] + bytes(1000), 2)):
        (tmp_path / name).write_bytes(content)
        rec = nordalib.pxm.open(tmp_path / name)
        assert len(rec) == frames and rec.truncated, name
        assert np.array_equal(rec[-1], full[frames - 1])


def test_written_recordings_play_in_the_cpp_file_reader(demo_recording, tmp_path):
    source = nordalib.pxm.open(demo_recording)[:4]
    out = tmp_path / "written.pxm"
    extra = {"Note": "from Python", "Gain": np.float32(1.5), "Roi": (1, 2, 3, 4), "IrImage.Cols": 7}
    assert nordalib.pxm.write(out, source, extra) == 4
    written = cpp_frames("decode", out, tmp_path / "cpp")
    for frame, (image, meta) in zip(source, written):
        assert np.array_equal(frame, image)
        assert meta["FrameCnt"] == ("ull", str(frame.metadata["FrameCnt"]))  # types kept
        assert meta["IrImage.Cols"] == ("u16", "7")  # the library's type of the key
        assert meta["Note"] == ("string", "from Python") and meta["Gain"] == ("f32", "1.5")
        assert meta["Roi"][0] == "rect"
    played = cpp_frames("play", out, tmp_path / "play", 6)
    assert [int(m["FrameCnt"][1]) for _, m in played] == list(range(6))
    for i, (image, _) in enumerate(played):
        assert np.array_equal(image, source[(i + 1) % 4])  # the reader starts at frame 1


def test_every_frame_type_round_trips(tmp_path):
    rng = np.random.default_rng(1)
    frames = [rng.integers(0, 65535, (5, 7), dtype="uint16"), rng.integers(0, 255, (4, 6, 3), dtype="uint8"),
              rng.integers(-300, 300, (3, 5), dtype="int16"), rng.normal(size=(6, 2)).astype("float32"),
              rng.normal(size=(2, 3, 2)), rng.integers(0, 255, (4, 4, 2), dtype="uint8"),
              np.arange(48, dtype="uint16").reshape(6, 8)[::2, 1:6]]  # padded rows
    meta = [{"i": i, "t": nordalib.Temperature(20.5 + i, mark=5)} for i in range(len(frames))]
    nordalib.pxm.write(tmp_path / "types.pxm", frames, meta)
    back = list(nordalib.pxm.open(tmp_path / "types.pxm"))
    for frame, original, m in zip(back, frames, meta):
        assert frame.dtype == original.dtype and np.array_equal(frame, original)
        assert frame.metadata == m and frame.metadata["t"].mark == 5


def test_bad_input_raises_naming_the_problem(demo_recording, tmp_path):
    data = open(demo_recording, "rb").read()
    damaged = tmp_path / "damaged.pxm"
    second = data.index(b"P5", 10)
    damaged.write_bytes(data[:second] + b"Q5" + data[second + 2:])
    with pytest.raises(ValueError, match=re.escape("damaged.pxm', frame 1: wrong magic number")):
        nordalib.pxm.open(damaged)
    with pytest.raises(FileNotFoundError):
        nordalib.pxm.open(tmp_path / "missing.pxm")
    with pytest.raises(OSError, match="no-such-dir"):
        nordalib.pxm.write(tmp_path / "no-such-dir" / "x.pxm", [np.zeros((2, 2), "uint16")])

    good = np.zeros((4, 4), "uint16")
    looped = {}
    looped["self"] = looped
    for frame, meta, error, message in (
            (good.astype("int64"), None, TypeError, "argument 'frame' must be an array of uint8, "),
            ([[1, 2]], None, TypeError, "argument 'frame' must be a NumPy array"),
            (np.zeros(5, "uint16"), None, ValueError, "argument 'frame' must have the shape"),
            (np.zeros((2, 2, 5), "uint8"), None, ValueError, "must have the shape"),
            (np.zeros((0, 3), "uint16"), None, ValueError, "argument 'frame' is empty"),
            (np.zeros((16385, 1), "uint8"), None, ValueError, "exceeds the PXM limit"),
            (good, {"DeviceInfo.Uptime": "long"}, TypeError, "metadata 'DeviceInfo.Uptime': a str value"),
            (good, {"ActiveMeasRange.Name": 300}, ValueError, "300 does not fit 'u8'"),
            (good, {"x": object()}, TypeError, "metadata 'x': a object value can not be stored"),
            (good, ["not a dict"], TypeError, "argument 'metadata' must be a dict"),
            (good, {1: 2}, TypeError, "argument 'metadata': keys must be str, not int"),
            (good, looped, ValueError, "nested deeper than 32 levels")):
        with nordalib.pxm.Writer(tmp_path / "w.pxm") as w:
            with pytest.raises(error, match=re.escape(message)):
                w.write(frame, meta)
            assert w.frames == 0
