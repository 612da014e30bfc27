"""What the logs of a way out say: order, losses, delays."""

from __future__ import annotations

import bisect
import statistics
from dataclasses import dataclass
from pathlib import Path

import numbered

SETTLING = 3.0  # seconds behind a way's first picture that count for order, but not for delays


class SentTimes:
    """When each picture went onto the cable, the newest first."""

    def __init__(self, path: Path) -> None:
        self.of: dict[int, list[float]] = {}
        for line in whole_lines(path):
            number, seconds = line.split()
            self.of.setdefault(int(number), []).append(float(seconds))

    def before(self, number: int, seconds: float) -> float | None:
        """When the picture of this number was last sent, as seen at that time."""
        times = self.of.get(number, [])
        place = bisect.bisect_right(times, seconds)
        return times[place - 1] if place else None


@dataclass
class Verdict:
    """Figures of one way; seconds, None where there is none."""

    order: numbered.Order
    first: float | None = None
    median: float | None = None
    high: float | None = None  # 95 %
    growth: float | None = None


def whole_lines(path: Path) -> list[str]:
    """The lines of a log; the last one may have been cut off by the end of its writer."""
    if not path.exists():
        return []
    return path.read_text("ascii").split("\n")[:-1]


def judge(log: Path, sent: SentTimes, started: float, loop: int) -> Verdict:
    """Judges the pictures that a way, started at that time, has brought."""
    verdict = Verdict(numbered.Order(loop))
    delays: list[tuple[float, float]] = []
    for line in whole_lines(log):
        at, text = line.split()
        seconds, number = float(at), None if text == "-" else int(text)
        verdict.order.add(number)
        if verdict.first is None:
            verdict.first = seconds - started
        if number is None or seconds < started + verdict.first + SETTLING:
            continue
        began = sent.before(number, seconds)
        if began is None:  # seen before it was sent: then it was not sent
            verdict.order.invented += 1
        else:
            delays.append((seconds, seconds - began))
    if len(delays) >= 20:
        values = [delay for _, delay in delays]
        verdict.median = statistics.median(values)
        verdict.high = statistics.quantiles(values, n=20)[-1]
        verdict.growth = growth(delays)
    return verdict


def growth(delays: list[tuple[float, float]]) -> float | None:
    """Median of the last minute less that of the first; of thirds, in a run of less than three."""
    begin, end = delays[0][0], delays[-1][0]
    span = min(60.0, (end - begin) / 3)
    first = [delay for at, delay in delays if at < begin + span]
    last = [delay for at, delay in delays if at > end - span]
    return statistics.median(last) - statistics.median(first) if first and last else None
