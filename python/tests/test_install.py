"""pip installs the package offline into a fresh venv, from this tree, and
the installed package works from elsewhere on its own files alone."""
import os
import pathlib
import subprocess
import sys
import textwrap

import pytest

SOURCE = pathlib.Path(__file__).resolve().parents[2]

CHECK = textwrap.dedent("""
    import pathlib, sys
    import kvdatetime as kv
    here = pathlib.Path(kv.__file__).parent
    assert here.is_relative_to(pathlib.Path(sys.prefix)), here
    assert (here / "py.typed").is_file() and (here / "__init__.pyi").is_file()
    t = kv.DateTime((2016, 12, 31, 23, 59, 60.5)).convert(standard="tai")
    assert t.stored == 1483228826.5, t
    # Every project library from the package directory, none from the tree.
    maps = open("/proc/self/maps").read()
    libs = {l.split()[-1] for l in maps.splitlines() if "libkv" in l}
    assert libs and all(pathlib.Path(l).parent == here for l in libs), libs
    print(kv.__version__)
""")


@pytest.mark.long_running
def test_pip_installs_offline_into_a_venv(tmp_path):
    venv = tmp_path / "venv"
    subprocess.run([sys.executable, "-m", "venv", "--system-site-packages",
                    str(venv)], check=True)
    env = {k: v for k, v in os.environ.items() if k != "PYTHONPATH"}
    # A build directory kept between runs, so a re-run builds incrementally.
    env["KVDT_CMAKE_BUILD_DIR"] = os.environ.get(
        "KVDT_WHEEL_BUILD_DIR", str(tmp_path / "cmake"))
    subprocess.run([str(venv / "bin" / "pip"), "install", "-q",
                    "--no-build-isolation", "--no-index", str(SOURCE)],
                   check=True, env=env, cwd=tmp_path, timeout=900)
    out = subprocess.run([str(venv / "bin" / "python"), "-c", CHECK],
                         check=True, env=env, cwd=tmp_path,
                         capture_output=True, text=True).stdout
    version = (SOURCE / "CMakeLists.txt").read_text().split(
        "project(KvDateTime VERSION ")[1].split()[0]
    assert out.strip() == version
