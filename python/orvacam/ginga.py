"""Raw frames in ginga (Debian: python3-ginga).

In `~/.ginga/ginga_config.py`:

    def init_config(ginga):
        import orvacam.ginga
        orvacam.ginga.register()

Then `ginga frame.raw` shows the merged plane (else image, else low), `ginga 'frame.raw[low]'` another one, with the
keywords of the library's FITS files.
"""

from typing import Any, Iterator, List, Optional, Union

from ginga.AstroImage import AstroImage
from ginga.util import iohelper, loader
from ginga.util.io.io_base import BaseIOHandler

from ._astropy import best_plane, to_ccddata
from ._frame import Frame, read

MIME_TYPE = 'image/x-orvacam'


class FrameHandler(BaseIOHandler):
    """Opens a raw frame; its planes are what ginga calls HDUs, by name or by number."""

    name = 'orvacam'
    mimetypes = [MIME_TYPE]

    def __init__(self, logger: Any) -> None:
        super().__init__(logger)
        self._frame: Optional[Frame] = None
        self._path = ''

    def open_file(self, filespec: str, **kwargs: Any) -> 'FrameHandler':
        """Reads the frame. Raises what `orvacam.read` does."""
        path = iohelper.get_fileinfo(filespec).filepath
        self._frame, self._path = read(path), path
        return self

    def close(self) -> None:
        self._frame = None

    def __len__(self) -> int:
        return 0 if self._frame is None else len(self._frame.planes)

    def _opened(self) -> Frame:
        if self._frame is None:
            raise ValueError('no frame is open')
        return self._frame

    def _plane(self, idx: Union[None, int, str]) -> str:
        frame = self._opened()
        if isinstance(idx, int) and not 0 <= idx < len(frame.planes):
            raise ValueError(f'{self._path}: there is no plane {idx}; there are {len(frame.planes)}')
        return frame.planes[idx] if isinstance(idx, int) else best_plane(frame, idx.lower() if idx else None)

    def load_idx(self, idx: Union[None, int, str], **kwargs: Any) -> AstroImage:
        """A plane as ginga's image. Raises what decoding does; ValueError for a plane that the frame does not have."""
        plane = self._plane(idx)
        ccd = to_ccddata(self._opened(), plane)
        image = AstroImage(logger=self.logger)
        image.load_data(ccd.data)
        image.update_keywords(dict(ccd.header))
        image.set(name=iohelper.name_image_from_path(self._path, idx=plane), path=self._path, idx=plane,
                  image_loader=load_file)
        return image

    def load_file(self, filepath: str, idx: Union[None, int, str] = None, **kwargs: Any) -> AstroImage:
        with self.open_file(filepath):
            return self.load_idx(idx, **kwargs)

    def get_matching_indexes(self, idx_spec: Union[None, str]) -> List[str]:
        """'[low]', '[*]', '' or a list of names."""
        words = [word.strip().lower() for word in (idx_spec or '').strip('[]').split(',') if word.strip()]
        if not words:
            return [best_plane(self._opened())]
        return [plane for plane in self._opened().planes if '*' in words or plane in words]

    def get_directory(self) -> Any:
        """The planes by name, as ginga lists what is in a file."""
        from ginga.misc.Bunch import Bunch

        frame = self._opened()
        return {plane: Bunch(index=i, name=plane, extver=0, dtype='uint16', htype='image', shape=frame.shape)
                for i, plane in enumerate(frame.planes)}

    def __iter__(self) -> Iterator[AstroImage]:
        return (self.load_idx(plane) for plane in self._opened().planes)


def load_file(filepath: str, idx: Union[None, int, str] = None, logger: Any = None, **kwargs: Any) -> AstroImage:
    """A plane of a frame as ginga's image."""
    return FrameHandler(logger).load_file(filepath, idx=idx, **kwargs)


def register(extension: str = '.raw') -> None:
    """Lets ginga open files with this extension as raw frames."""
    iohelper.known_types[extension.lower()] = MIME_TYPE
    loader.add_opener(FrameHandler, FrameHandler.mimetypes, note='raw frames of scientific cameras')
