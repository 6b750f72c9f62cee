"""Cases share nothing: thread settings are as they were, and files are in folders of their own."""

import hypothesis
import pytest
import tarn

hypothesis.settings.register_profile("tarn", database=None)  # nothing is left in the tree
hypothesis.settings.load_profile("tarn")


@pytest.fixture(autouse=True)
def settings_stay():
    def all_of_them():
        return tarn.thresholds(), tarn.temp_directory(), tarn.default_resolution(), tarn.default_dithering()

    before = all_of_them()
    yield
    assert all_of_them() == before
