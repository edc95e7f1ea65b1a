"""Settings whose meaning depends on the product, each on a board of its own process."""

from __future__ import annotations

from started import on_another


def test_thresholds_and_data_modes_of_series_24() -> None:
    on_another(
        "K3910",
        """
        for value, held in ((0, 0), (40, 20), (41, 20), (511, 255)):
            s.extraction.rise_threshold = value
            assert s.held("RIS_THRESHOLD") == held
            assert s.extraction.rise_threshold == 2 * held
        for value, held in ((0, 0), (1, 2), (2, 1), (3, 3)):
            s.extraction.data_mode = value
            assert s.held("STRIP_DATA_MODE") == held
            assert s.extraction.data_mode == value
        """,
    )


def test_high_dynamic_range_of_series_24() -> None:
    on_another(
        "K3910",
        """
        from tessaline.errors import RefusedError
        s.image_sensor.exposure_us = 100
        ticks = s.held("EXP_TIME_1")
        s.image_sensor.set_hdr_segments(0.5, 0.25)
        assert s.held("HDR_CTRL.segment1") > s.held("HDR_SEG2") > 0
        s.image_sensor.sensing_mode = 1
        assert s.held("HDR_CTRL.enable") == 1
        s.image_sensor.sensing_mode = 0
        assert s.held("HDR_CTRL.enable") == 0
        for state in (True, False):
            s.image_sensor.continuous = state
            assert s.held("FPGA_CONTINUOUS") == state
        s.touched()
        for wrong in ((0.6, 0.5), (-0.1, 0), (0, 1.1), (float("nan"), 0)):
            with pytest.raises(RefusedError):
                s.image_sensor.set_hdr_segments(*wrong)
        with pytest.raises(RefusedError, match="GSPRINT6502BSI of a K3910 has no knee"):
            s.image_sensor.set_hdr_knee(1, 10)
        with pytest.raises(RefusedError):
            s.image_sensor.sensing_mode = 2
        with pytest.raises(RefusedError, match="its gain is 1 to 4, in levels"):
            s.image_sensor.gain = 0
        assert s.touched() == []
        """,
    )


def test_high_dynamic_range_of_series_25() -> None:
    on_another(
        "K4010",
        """
        from tessaline.errors import RefusedError
        assert s.registers.find("TRIGGER_CTRL")[0].address == 0xA0010004
        assert s.image_sensor.answers_temperature is False
        for position, factor in ((0, 5), (1, 10), (2, 500)):
            s.image_sensor.set_hdr_knee(position, factor)
        s.touched()
        for wrong in ((3, 10), (1, 4), (1, 501), (-1, 10)):
            with pytest.raises(RefusedError):
                s.image_sensor.set_hdr_knee(*wrong)
        assert s.touched() == []
        s.image_sensor.sensing_mode = 1
        s.image_sensor.exposure_us = 100
        assert s.held("EXP_TIME_1") == 15  # 1 us starts the exposure
        with pytest.raises(RefusedError, match="x and width in steps of 64"):
            s.image_sensor.region = (8, 0, 640, 480)
        """,
    )
