"""Builds the module with CMake, from the tree around this folder, and puts the library beside it.

ORVACAM_BUILD_DIR names a build folder of the tree with -DORVACAM_BUILD_PYTHON=ON, whose module is taken as it is.
"""

import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile

from setuptools import Extension, find_packages, setup
from setuptools.command.build_ext import build_ext

HERE = pathlib.Path(__file__).resolve().parent
ROOT = HERE.parent


def version():
    project = (ROOT / 'CMakeLists.txt').read_text()
    return re.search(r'^project\(orvacam VERSION ([0-9.]+)', project, re.M).group(1)


class CMakeBuild(build_ext):
    def build_extension(self, ext):
        given = os.environ.get('ORVACAM_BUILD_DIR')
        folder = pathlib.Path(given).resolve() if given else pathlib.Path(self.build_temp).resolve()
        if not given:
            subprocess.run(['cmake', '-S', ROOT, '-B', folder, '-DCMAKE_BUILD_TYPE=Release',
                            '-DORVACAM_BUILD_PYTHON=ON', '-DORVACAM_BUILD_TOOLS=OFF', '-DORVACAM_UNITY=ON',
                            f'-DORVACAM_PYTHON={sys.executable}'], check=True)
            # Without a number, make would start all jobs at once.
            jobs = os.environ.get('CMAKE_BUILD_PARALLEL_LEVEL') or str(len(os.sched_getaffinity(0)))
            subprocess.run(['cmake', '--build', folder, '--target', 'orvacam_python', '--parallel', jobs], check=True)
        target = pathlib.Path(self.get_ext_fullpath(ext.name)).resolve()
        target.parent.mkdir(parents=True, exist_ok=True)
        with tempfile.TemporaryDirectory() as prefix:
            subprocess.run(['cmake', '--install', folder, '--component', 'python', '--prefix', prefix], check=True)
            (module,) = pathlib.Path(prefix).rglob('_core.*.so')
            shutil.copy(module, target)
        soname = f'liborvacam.so.{version().split(".")[0]}'
        shutil.copy((folder / 'src' / soname).resolve(), target.parent / soname)


setup(version=version(), packages=find_packages(include=['orvacam', 'orvacam.*']),
      package_data={'': ['py.typed', '*.pyi', '*.html', '*.css', '*.js', '*.yaml']},
      ext_modules=[Extension('orvacam._core', [])], cmdclass={'build_ext': CMakeBuild})
