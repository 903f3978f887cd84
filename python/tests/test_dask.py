"""Past one machine: the array functions inside dask.array.map_blocks on a
cluster of two worker processes give exactly the single-process result."""
import functools
import operator

import numpy as np
import pytest

import kvdatetime as kv

dask = pytest.importorskip(
    "dask", reason="dask is not installed (Debian's python3-dask)")
pytest.importorskip("distributed",
                    reason="distributed is not installed "
                    "(Debian's python3-distributed)")
import dask.array as da  # noqa: E402
import toolz  # noqa: E402  (a dependency of dask)
from distributed import Client, LocalCluster  # noqa: E402


def stored_only(fn, **kw):
    """A picklable function giving the stored values of a function that
    returns (stored values, flags)."""
    return toolz.compose(operator.itemgetter(0), functools.partial(fn, **kw))


@pytest.fixture(scope="module")
def client():
    with LocalCluster(n_workers=2, processes=True, threads_per_worker=1,
                      dashboard_address=None) as cluster, \
            Client(cluster) as c:
        yield c


@pytest.mark.long_running
def test_ten_million_values_convert_on_two_workers_as_in_one(client):
    state = da.random.RandomState(20261123)
    values = state.uniform(-2.0e9, 4.0e9, size=10 ** 7, chunks=10 ** 6)
    tai = values.map_blocks(stored_only(kv.convert_standard,
                                        to_standard="tai"), dtype=float)
    calendar = values[:10 ** 6].map_blocks(
        kv.to_calendar, dtype=float, new_axis=1,
        chunks=(values[:10 ** 6].chunks[0], (6,)))
    on_cluster = client.compute([tai, calendar], sync=True)
    # The same graph, the same random blocks, in this process.
    local = dask.compute(tai, calendar, scheduler="synchronous")
    assert {w["nthreads"] for w in
            client.scheduler_info()["workers"].values()} == {1}
    assert len(client.scheduler_info()["workers"]) == 2
    for got, want in zip(on_cluster, local):
        assert got.shape == want.shape
        np.testing.assert_array_equal(got, want)
    # And the values are those of the extension called directly.
    head = values[:1000].compute(scheduler="synchronous")
    np.testing.assert_array_equal(
        on_cluster[0][:1000], kv.convert_standard(head, to_standard="tai")[0])


@pytest.mark.long_running
def test_strings_parse_on_two_workers_as_in_one(client):
    seconds = np.random.default_rng(3).integers(-2 * 10 ** 9, 4 * 10 ** 9,
                                                2 * 10 ** 5)
    texts = np.datetime_as_string(seconds.astype("M8[s]") +
                                  np.timedelta64(250, "ms"))
    chunked = da.from_array(texts, chunks=25_000)
    stored = chunked.map_blocks(stored_only(kv.parse, storage="int64"),
                                dtype=np.int64)
    got = client.compute(stored, sync=True)
    np.testing.assert_array_equal(got, kv.parse(texts, storage="int64")[0])
    np.testing.assert_array_equal(got, seconds)  # int64 cuts the 250 ms
