"""PXM raw-frame recordings: read them as NumPy frames, write them for the camera's file reader.

    rec = nordalib.pxm.open("RAW20261123-154730.pxm")
    len(rec), rec[0], rec[-1].metadata["FrameCnt"]
    for frame in rec: ...
    nordalib.pxm.write("copy.pxm", rec)            # frames keep their metadata and its types
"""

import numpy as np

from . import _nordalib
from .values import Metadata

_native = _nordalib.pxm


class Frame(np.ndarray):
    """One frame: a NumPy array (uint16 for raw detector frames) with the frame's ``metadata``
    (made into Python values when first asked for; views of the frame share it)."""

    def __array_finalize__(self, obj):
        self._metadata = getattr(obj, "_metadata", None)
        self._read = getattr(obj, "_read", None)

    @property
    def metadata(self):
        if self._read is not None:
            self._metadata, self._read = self._read.values(), None
        return self._metadata

    @metadata.setter
    def metadata(self, value):
        self._metadata, self._read = value, None


class Recording:
    """The frames of a PXM file, indexed when opened: ``len()``, indexing (negative indices and
    slices too) and iteration. A file cut off inside a frame reads up to its last whole frame
    (``truncated`` tells); a damaged frame header raises ValueError when the file is opened.
    Frames are the decoder's buffers handed over without a copy."""

    def __init__(self, path):
        self._native = _native._Recording(path)

    @property
    def path(self):
        return self._native.path

    @property
    def truncated(self):
        """Whether the file ended inside a frame (the frames before it are all there)."""
        return self._native.truncated

    def __len__(self):
        return len(self._native)

    def __getitem__(self, index):
        if isinstance(index, slice):
            return [self[i] for i in range(*index.indices(len(self)))]
        image, metadata = self._native.read(index)
        frame = image.view(Frame)
        frame._read = metadata
        return frame

    def __iter__(self):
        for i in range(len(self)):
            yield self[i]

    def close(self):
        self._native.close()

    def __enter__(self):
        return self

    def __exit__(self, *exc):
        self.close()

    def __repr__(self):
        return "<nordalib.pxm.Recording %r, %d frames%s>" % (
            self.path, len(self), ", truncated" if self.truncated else "")


def open(path):
    """Opens a recording for reading (see Recording)."""
    return Recording(path)


class Writer:
    """Writes a recording frame by frame; every frame is handed to the system before write()
    returns, and close() forces the file to the storage medium."""

    def __init__(self, path):
        self._native = _native._Writer(path)

    def write(self, frame, metadata=None):
        """Appends a frame (a 2-D array, or 3-D with up to 4 channels) with its metadata: the
        frame's own ``metadata`` (a Frame read from a recording) updated by `metadata`."""
        own = getattr(frame, "metadata", None)
        if own is not None and metadata is not None:
            merged = Metadata(own, types=getattr(own, "types", None))
            merged.update(metadata)
            metadata = merged
        elif metadata is None:
            metadata = own
        self._native.write(frame, metadata)

    @property
    def frames(self):
        return self._native.frames

    def close(self):
        self._native.close()

    def __enter__(self):
        return self

    def __exit__(self, *exc):
        self.close()


def write(path, frames, metadata=None):
    """Writes `frames` (any iterable of arrays) as a recording that the camera's file reader plays.
    `metadata` is one dict for every frame or a sequence of dicts, one per frame; it is added to
    the metadata a Frame brings along. Returns the number of frames written."""
    per_frame = metadata is not None and not isinstance(metadata, dict)
    with Writer(path) as w:
        for i, frame in enumerate(frames):
            w.write(frame, metadata[i] if per_frame else metadata)
        return w.frames
