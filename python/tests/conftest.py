def pytest_configure(config):
    config.addinivalue_line(
        "markers", "long_running: minutes, not seconds (a venv install, a Dask "
        "cluster); ctest runs them as python_slow")
