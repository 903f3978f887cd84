def pytest_configure(config):
    config.addinivalue_line(
        "markers", "slow: minutes, not seconds (a venv install, a Dask "
        "cluster); ctest runs them as python_slow")
