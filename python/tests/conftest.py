"""Cases share nothing: thread settings are as they were, and files are in folders of their own."""

import pytest
import tarn


@pytest.fixture(autouse=True)
def settings_stay():
    before = tarn.thresholds(), tarn.temp_directory(), tarn.default_resolution()
    yield
    assert (tarn.thresholds(), tarn.temp_directory(), tarn.default_resolution()) == before
