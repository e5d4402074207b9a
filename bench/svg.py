"""Draws lines through points, as SVG."""

import math

WIDTH, HEIGHT = 640, 360
LEFT, RIGHT, TOP, BOTTOM = 70, 20, 40, 50
COLOURS = ["#1f77b4", "#d62728", "#2ca02c"]


class Axis:
    """Places values between two ends, by their logarithm or as they are."""

    def __init__(self, values, ends, logarithmic):
        self.map = math.log10 if logarithmic else float
        self.logarithmic = logarithmic
        if logarithmic:
            self.low = math.floor(math.log10(min(values)))
            self.high = max(self.low + 1, math.ceil(math.log10(max(values))))
        else:
            self.low, self.high = 0, max(values) * 1.1
        self.ends = ends

    def place(self, value):
        share = (self.map(value) - self.low) / (self.high - self.low)
        return self.ends[0] + share * (self.ends[1] - self.ends[0])

    def ticks(self):
        if self.logarithmic:
            return [10**power for power in range(self.low, self.high + 1)]
        step = 10 ** math.floor(math.log10(self.high / 2))
        step *= next(factor for factor in (1, 2, 5, 10) if self.high / (step * factor) <= 7)
        return [step * i for i in range(int(self.high / step) + 1)]


def text(x, y, content, anchor="middle", extra=""):
    return f'<text x="{x:.0f}" y="{y:.0f}" text-anchor="{anchor}"{extra}>{content}</text>'


def grid(x, y):
    for tick in x.ticks():
        at = x.place(tick)
        yield f'<path class="grid" d="M{at:.1f} {TOP}V{HEIGHT - BOTTOM}"/>'
        yield text(at, HEIGHT - BOTTOM + 18, f"{tick:,}")
    for tick in y.ticks():
        at = y.place(tick)
        yield f'<path class="grid" d="M{LEFT} {at:.1f}H{WIDTH - RIGHT}"/>'
        yield text(LEFT - 6, at + 4, f"{tick:,}", "end")


def curve(number, name, points, x, y):
    colour = COLOURS[number]
    places = [(x.place(at), y.place(value)) for at, value in points]
    line = " ".join(f"{across:.1f},{down:.1f}" for across, down in places)
    yield f'<polyline fill="none" stroke="{colour}" stroke-width="2" points="{line}"/>'
    for across, down in places:
        yield f'<circle cx="{across:.1f}" cy="{down:.1f}" r="3" fill="{colour}"/>'
    yield text(LEFT + 12, TOP + 16 + 16 * number, name, "start", f' fill="{colour}"')


def plot(title, x_label, y_label, curves, logarithmic=False):
    """curves: name to a list of (x, y)."""
    points = [point for line in curves.values() for point in line]
    x = Axis([point[0] for point in points], (LEFT, WIDTH - RIGHT), logarithmic)
    y = Axis([point[1] for point in points], (HEIGHT - BOTTOM, TOP), logarithmic)
    parts = [
        f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {WIDTH} {HEIGHT}" font-family="sans-serif" font-size="12">',
        "<style>.grid { stroke: #ddd }</style>",
        f'<rect width="{WIDTH}" height="{HEIGHT}" fill="white"/>',
        text(WIDTH / 2, 22, title, extra=' font-size="15"'),
        text(WIDTH / 2, HEIGHT - 12, x_label),
        text(16, HEIGHT / 2, y_label, extra=f' transform="rotate(-90 16 {HEIGHT // 2})"'),
        *grid(x, y),
    ]
    for number, (name, line) in enumerate(curves.items()):
        parts += curve(number, name, line, x, y)
    return "\n".join(parts + ["</svg>", ""])
