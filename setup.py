"""Builds the kvdatetime extension with the project's own CMake build and
puts it, with the project's shared libraries it loads, into the package:
the extension and the libraries find each other by an rpath of $ORIGIN, so
the installed package needs nothing from this tree.

KVDT_CMAKE_BUILD_DIR names a build directory to use, as configured if it
has been (this project's own build tree, say: only the module is built);
by default a fresh one under setuptools' build_temp.
"""
import os
import pathlib
import re
import shutil
import subprocess
import sys

from setuptools import Extension, setup
from setuptools.command.build_ext import build_ext

ROOT = pathlib.Path(__file__).resolve().parent


def project_version():
    text = (ROOT / "CMakeLists.txt").read_text()
    return re.search(r"project\(KvDateTime VERSION ([0-9.]+)", text).group(1)


class CMakeBuild(build_ext):
    def build_extension(self, ext):
        build = pathlib.Path(os.environ.get("KVDT_CMAKE_BUILD_DIR") or
                             pathlib.Path(self.build_temp, "cmake")).resolve()
        # A build directory already configured is used as it is.
        if not (build / "CMakeCache.txt").exists():
            subprocess.check_call([
                "cmake", "-S", str(ROOT), "-B", str(build),
                "-DCMAKE_BUILD_TYPE=Release",
                "-DPython3_EXECUTABLE=" + sys.executable,
                "-DKVDT_BUILD_PYTHON=ON", "-DKVDT_BUILD_TESTS=OFF",
                "-DKVDT_BUILD_TOOLS=OFF", "-DKVDT_BUILD_EXAMPLES=OFF",
                "-DKVDT_BUILD_BENCH=OFF"])
        subprocess.check_call(["cmake", "--build", str(build), "--target",
                               "kvdt_python", "-j2"])
        built = next((build / "python" / "kvdatetime").glob("_kvdatetime*.so"))
        target = pathlib.Path(self.get_ext_fullpath(ext.name))
        target.parent.mkdir(parents=True, exist_ok=True)
        copies = [target]
        shutil.copy2(built, target)
        for lib in self.project_libraries(built, build):
            # By the soname, the file the link points at.
            copies.append(target.parent / lib.name)
            shutil.copy2(lib.resolve(), copies[-1])
        # The build tree's rpaths name the tree; the copies find each other
        # beside themselves.
        script = pathlib.Path(self.build_temp, "rpath.cmake")
        script.parent.mkdir(parents=True, exist_ok=True)
        script.write_text("".join(
            'file(RPATH_SET FILE "%s" NEW_RPATH "$ORIGIN")\n' % f
            for f in copies))
        subprocess.check_call(["cmake", "-P", str(script)])

    @staticmethod
    def project_libraries(module, build):
        """The build tree's shared libraries the module loads, directly or
        through each other, by the names (sonames) the loader asks for."""
        made = {p.name: p for p in build.rglob("*.so*") if p.is_file() or
                p.is_symlink()}
        found, todo = {}, [module]
        while todo:
            out = subprocess.run(["readelf", "-d", str(todo.pop())],
                                 check=True, text=True,
                                 capture_output=True).stdout
            for name in re.findall(r"\(NEEDED\).*\[(.+)\]", out):
                if name in made and name not in found:
                    found[name] = made[name]
                    todo.append(made[name])
        return found.values()

setup(version=project_version(),
      ext_modules=[Extension("kvdatetime._kvdatetime", sources=[])],
      cmdclass={"build_ext": CMakeBuild})
