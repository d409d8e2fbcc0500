"""A drawing in the SVG format, with as few bytes as a plot needs."""

import html


def number(value):
    """Coordinate with one decimal, without zeros at the end."""
    text = f"{value:.1f}".rstrip("0").rstrip(".")
    return "0" if text in ("-0", "") else text


class Drawing:
    def __init__(self, width, height):
        self.size = (width, height)
        self.parts = []

    def path(self, d, style):
        self.parts.append(f'<path d="{d}" {style}/>')

    def polygon(self, points, style):
        corners = "L".join(f"{number(x)} {number(y)}" for x, y in points)
        self.path(f"M{corners}z", style)

    def lines(self, segments, style):
        """Straight lines ((x, y), (dx, dy)) as one path; those that show nothing are left out."""
        d = "".join(f"M{number(x)} {number(y)}l{number(dx)} {number(dy)}"
                    for (x, y), (dx, dy) in segments if max(abs(dx), abs(dy)) >= 0.1)
        if d:
            self.path(d, style)

    def dots(self, points, diameter, colour):
        d = "".join(f"M{number(x)} {number(y)}h0" for x, y in points)
        self.path(d, f'stroke="{colour}" stroke-width="{diameter}" stroke-linecap="round"')

    def text(self, x, y, text, style=""):
        self.parts.append(f'<text x="{number(x)}" y="{number(y)}" {style}>{html.escape(text)}</text>')

    def save(self, path):
        width, height = self.size
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text("\n".join([
            f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {width} {height}" '
            f'width="{width}" height="{height}" font-family="sans-serif" font-size="11" '
            'fill="none" stroke-linejoin="round">',
            f'<rect width="{width}" height="{height}" fill="#fff"/>',
            *self.parts, "</svg>", ""]), encoding="utf-8")
        print(f"{path}: {path.stat().st_size} bytes")
