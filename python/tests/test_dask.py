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


@pytest.mark.long_running
def test_values_and_strings_convert_on_two_workers_as_in_one():
    state = da.random.RandomState(20261123)
    values = state.uniform(-2.0e9, 4.0e9, size=10 ** 7, chunks=10 ** 6)
    tai = values.map_blocks(stored_only(kv.convert_standard,
                                        to_standard="tai"), dtype=float)
    calendar = values[:10 ** 6].map_blocks(
        kv.to_calendar, dtype=float, new_axis=1,
        chunks=(values[:10 ** 6].chunks[0], (6,)))
    seconds = np.random.default_rng(3).integers(-2 * 10 ** 9, 4 * 10 ** 9,
                                                2 * 10 ** 5)
    texts = np.datetime_as_string(seconds.astype("M8[s]") +
                                  np.timedelta64(250, "ms"))
    parsed = da.from_array(texts, chunks=25_000).map_blocks(
        stored_only(kv.parse, storage="int64"), dtype=np.int64)
    with LocalCluster(n_workers=2, processes=True, threads_per_worker=1,
                      dashboard_address=None) as cluster, \
            Client(cluster) as client:
        on_cluster = client.compute([tai, calendar, parsed], sync=True)
        workers = client.scheduler_info()["workers"].values()
        assert [w["nthreads"] for w in workers] == [1, 1]
    # The same graph, the same random blocks, in this process.
    local = dask.compute(tai, calendar, parsed, scheduler="synchronous")
    for got, want in zip(on_cluster, local):
        assert got.shape == want.shape
        np.testing.assert_array_equal(got, want)
    # And the values are those of the extension called directly.
    head = values[:1000].compute(scheduler="synchronous")
    np.testing.assert_array_equal(
        on_cluster[0][:1000], kv.convert_standard(head, to_standard="tai")[0])
    np.testing.assert_array_equal(on_cluster[2], seconds)  # int64 cuts 250 ms
