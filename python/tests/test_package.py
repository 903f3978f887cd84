"""The package as Python tools see it: its version, its stub against the
module it describes, and pickling by reference."""
import ast
import concurrent.futures
import enum
import inspect
import multiprocessing
import pathlib
import pickle
import re

import numpy as np
import pytest

import kvdatetime as kv

PACKAGE = pathlib.Path(kv.__file__).parent
SOURCE = pathlib.Path(__file__).resolve().parents[2]
STUB = ast.parse((PACKAGE / "__init__.pyi").read_text())


def test_version_is_the_cmake_projects():
    project = re.search(r"project\(KvDateTime VERSION ([0-9.]+)",
                        (SOURCE / "CMakeLists.txt").read_text()).group(1)
    assert kv.__version__ == project


def test_package_carries_its_typing_marker_and_stub():
    assert (PACKAGE / "py.typed").is_file()
    assert kv._ext.__file__.startswith(str(PACKAGE))


def stub_names(body):
    """Names a stub body defines (not the private aliases it uses)."""
    out = {}
    for node in body:
        if isinstance(node, (ast.FunctionDef, ast.ClassDef)):
            out[node.name] = node
        elif isinstance(node, ast.AnnAssign):
            out[node.target.id] = node
        elif isinstance(node, ast.Assign):
            for t in node.targets:
                out[t.id] = node
    return {k: v for k, v in out.items() if not k.startswith("_") or
            (k.startswith("__") and k.endswith("__"))}


def runtime_params(obj, name):
    """Parameter names (with "*" for keyword-only) of a Python function or
    of a pybind11 function, from the signature line of its docstring."""
    try:
        ps = inspect.signature(obj).parameters.values()
        return with_star([p.name for p in ps if p.kind is not p.KEYWORD_ONLY],
                         [p.name for p in ps if p.kind is p.KEYWORD_ONLY])
    except ValueError:
        line = obj.__doc__.splitlines()[0]
        assert line.startswith(name + "("), line
        # A name starts each parameter and is followed by its type.
        return re.findall(r"(?:^|, )(\*(?=,|$)|\w+(?=: ))",
                          line[len(name) + 1:line.rindex(") ->")])


def with_star(positional, keyword_only):
    return positional + (["*"] + keyword_only if keyword_only else [])


def stub_params(fn):
    a = fn.args
    return with_star([p.arg for p in a.posonlyargs + a.args],
                     [p.arg for p in a.kwonlyargs])


def test_stub_and_module_name_the_same_things():
    public = {n for n in dir(kv) if not n.startswith("_")} | {"__version__"}
    assert public == set(stub_names(STUB.body)) == set(kv.__all__)


def test_stub_classes_have_the_modules_members_and_bases():
    for name, node in stub_names(STUB.body).items():
        if not isinstance(node, ast.ClassDef):
            continue
        cls = getattr(kv, name)
        bases = {ast.unparse(b) for b in node.bases}
        assert {b.__name__ for b in cls.__bases__} - {"pybind11_object"} == \
            {b.split(".")[-1] for b in bases}, name
        members = stub_names(node.body)
        if issubclass(cls, BaseException):
            assert set(members) <= {"identifier", "message", "index"}
            continue
        if issubclass(cls, enum.Enum):
            assert {m: getattr(cls, m).value for m in members} == \
                {m: ast.literal_eval(n.value) for m, n in members.items()}
            assert set(members) == set(cls.__members__)
            continue
        runtime = {n for n in vars(cls) if not n.startswith("_")}
        assert runtime == {n for n in members if not n.startswith("_")}, name
        for member, fn in members.items():
            assert hasattr(cls, member), (name, member)
            if isinstance(fn, ast.FunctionDef) and not any(
                    ast.unparse(d) == "property" for d in fn.decorator_list):
                got = runtime_params(getattr(cls, member), member)
                want = stub_params(fn)
                if got[:1] != ["self"] and want[:1] == ["self"]:
                    want = want[1:]
                assert got == want, (name, member)


def test_stub_functions_take_the_modules_parameters():
    for name, node in stub_names(STUB.body).items():
        if isinstance(node, ast.FunctionDef):
            assert runtime_params(getattr(kv, name), name) == \
                stub_params(node), name


@pytest.mark.parametrize("obj", [
    kv.to_calendar, kv.from_calendar, kv.convert_standard, kv.format,
    kv.DateTime((2020, 1, 1))], ids=lambda f: getattr(f, "__name__", "value"))
def test_functions_by_reference_and_values_pickle_under_the_package_name(obj):
    data = pickle.dumps(obj, protocol=4)
    assert b"kvdatetime" in data and b"_kvdatetime" not in data
    if callable(obj):
        assert len(data) < 100 and pickle.loads(data) is obj


def calendar_in_worker(fn, values):
    return fn(values, "j2000", "tt")


def test_functions_and_values_ship_to_a_spawned_worker():
    values = np.array([0.0, 1.25, -3650.5, 9000.0])
    ctx = multiprocessing.get_context("spawn")
    with concurrent.futures.ProcessPoolExecutor(1, mp_context=ctx) as pool:
        got = pool.submit(calendar_in_worker, kv.to_calendar, values).result()
        dt = kv.DateTime((2016, 12, 31, 23, 59, 60.5))
        back = pool.submit(pickle.loads, pickle.dumps(dt)).result()
    np.testing.assert_array_equal(got, kv.to_calendar(values, "j2000", "tt"))
    assert back == dt and back.leap_second
