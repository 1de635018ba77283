"""What the plots of the report draw: thinned series, spans and marks."""
import pytest
from result_fixture import busy_home

from kolt_sim.view import report_data, report_plots


# Thinning

@pytest.mark.parametrize("how", report_data.THINNING)
@pytest.mark.parametrize("ticks", [1, 2, 1199, 1200, 1201, 2399, 2400, 2401, 3599, 3600, 3601, 36000])
def test_every_way_of_thinning_gives_the_same_rows(ticks: int, how: str) -> None:
    rows = report_data.thin([float(tick) for tick in range(ticks)], how)
    assert len(rows) == len(report_data.row_times({"series": {"time": list(range(ticks))}})) <= report_data.MAX_ROWS


def test_extremes_keep_every_peak_in_its_order() -> None:
    assert report_data.extremes([1, 9, 2, 0, 5, 5, 5, 5], 2) == [9, 0, 5, 5]
    assert report_data.extremes([4, 1, 3, 8], 2) == [1, 8]


def test_extremes_of_an_odd_rest_keep_the_highest() -> None:
    assert report_data.extremes([1, 2, 3, 4, 7, 6], 2) == [1, 4, 7]


def test_a_single_peak_in_an_hour_survives() -> None:
    column = [10.0] * 3600
    column[1234] = 97.0
    assert max(report_data.thin(column, "extremes")) == 97.0


def test_means_keep_the_sum() -> None:
    column = [float(tick % 7) for tick in range(3600)]
    assert sum(report_data.mean(column, 3)) * 3 == pytest.approx(sum(column))


def test_unknown_values_do_not_count() -> None:
    assert report_data.mean([None, 4, None, None], 2) == [4, None]
    assert report_data.last([1, None, None, None], 2) == [1, None]
    assert report_data.extremes([None, 4, None, None, None, None, None, None], 2) == [4, 4, None, None]


def test_a_thinned_plot_says_how() -> None:
    captions = {plot["id"]: plot["caption"] for plot in report_plots.plots(busy_home(3600))}
    assert captions["utilisation"].endswith("Thinned to the lowest and highest values of every 6 ticks.")
    assert captions["goodput"].endswith("Thinned to the means of every 3 ticks.")
    assert captions["clients"].endswith("Thinned to the last values of every 3 ticks.")
    assert not any("Thinned" in plot["caption"] for plot in report_plots.plots(busy_home(1200)))


# Marks

def test_spans_run_from_the_first_tick_to_the_end_of_the_last() -> None:
    assert report_data.spans([0, 1, 2, 3, 4], ["a", "a", "", "b", "a"], 5) == [[0, 2, "a"], [3, 4, "b"], [4, 5, "a"]]


def test_lanes_show_broadcast_links_down_and_storms() -> None:
    result = busy_home(600)
    result["series"]["storm"][50:60] = [["wlan1.1", "wlan2.1"]] * 10
    lanes = {lane["detail"]: lane["spans"] for lane in report_data.lanes(result)}
    assert lanes["eth0"] == [[0, 240, "down"], [240, 420, "broadcast"], [420, 600, "down"]]
    assert lanes["wlan1.1"] == [[0, 240, "broadcast"], [420, 600, "broadcast"], [50, 60, "storm"]]
    assert lanes["wlan2.1"] == [[50, 60, "storm"]]
    assert lanes["with daemon"] == [[50, 60, "storm", "wlan1.1, wlan2.1"]]
    assert lanes["without it"] == [[240, 420, "storm", "eth0, wlan1.1"]]


def test_moves_are_summed_by_row_and_none_is_lost() -> None:
    result = busy_home(3600)
    marks = report_data.moves(result)
    assert sum(count for *_, count in marks) == len(result["moves"])
    assert {at for at, *_ in marks} <= set(report_data.row_times(result))


def test_a_path_that_is_down_has_no_rate() -> None:
    series = report_data.path_series(busy_home(600), "rate", "extremes", only_up=True)
    cable = next(one["values"] for one in series if one["label"] == "Ethernet (eth0)")
    assert [tick for tick, rate in enumerate(cable) if rate is not None] == list(range(240, 420))
