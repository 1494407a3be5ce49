#!/usr/bin/env python3
"""Draws the wizard's pictures as SVG into resources/pictures/, and the program's icon into
packaging/.

The pictures share their pieces (laptop, instrument, cable), so they are drawn from one
place; run this after changing it and commit the SVG files it writes."""
import pathlib

TOP = pathlib.Path(__file__).resolve().parent.parent
OUT = TOP / "resources" / "pictures"
ICON = TOP / "packaging" / "org.varnolt.Varnolt.svg"
BLUE, TEAL, LIGHT, DARK, AMBER = "#1F4E79", "#2A9D8F", "#E9EEF3", "#3A3F44", "#F4A261"

GRADIENTS = f"""<defs>
<linearGradient id="body" x1="0" y1="0" x2="0" y2="1"><stop offset="0" stop-color="#F7F9FB"/><stop offset="1" stop-color="#C9D3DD"/></linearGradient>
<linearGradient id="screen" x1="0" y1="0" x2="0" y2="1"><stop offset="0" stop-color="#2B6CA3"/><stop offset="1" stop-color="{BLUE}"/></linearGradient>
<linearGradient id="box" x1="0" y1="0" x2="1" y2="1"><stop offset="0" stop-color="#F8C08F"/><stop offset="1" stop-color="{AMBER}"/></linearGradient>
<radialGradient id="glow" cx="0.5" cy="0.5" r="0.5"><stop offset="0" stop-color="#FFFFFF" stop-opacity="0.9"/><stop offset="1" stop-color="{LIGHT}" stop-opacity="0"/></radialGradient>
</defs>"""


def svg(width, height, body):
    return (f'<svg xmlns="http://www.w3.org/2000/svg" version="1.2" baseProfile="tiny" '
            f'width="{width}" height="{height}" viewBox="0 0 {width} {height}">\n{GRADIENTS}\n{body}\n</svg>\n')


def backdrop(width, height):
    return f'<ellipse cx="{width / 2}" cy="{height * 0.55}" rx="{width * 0.48}" ry="{height * 0.42}" fill="url(#glow)"/>'


def laptop(x, y, s=1.0):
    return f"""<g transform="translate({x},{y}) scale({s})">
<rect x="2" y="0" width="44" height="30" rx="3" fill="{DARK}"/>
<rect x="5" y="3" width="38" height="24" rx="1.5" fill="url(#screen)"/>
<rect x="9" y="8" width="18" height="2.5" rx="1" fill="#FFFFFF" opacity="0.85"/>
<rect x="9" y="13" width="26" height="2" rx="1" fill="#FFFFFF" opacity="0.5"/>
<rect x="9" y="17" width="22" height="2" rx="1" fill="#FFFFFF" opacity="0.5"/>
<rect x="9" y="21" width="14" height="2" rx="1" fill="{TEAL}"/>
<path d="M0 32 L48 32 L52 38 L-4 38 Z" fill="#9AA7B4"/>
<rect x="-4" y="37" width="56" height="2.5" rx="1.2" fill="#7D8A97"/>
</g>"""


def instrument(x, y, s=1.0, led=AMBER):
    return f"""<g transform="translate({x},{y}) scale({s})">
<rect x="3" y="43" width="8" height="4" rx="1.5" fill="{DARK}"/>
<rect x="39" y="43" width="8" height="4" rx="1.5" fill="{DARK}"/>
<rect x="0" y="0" width="50" height="44" rx="5" fill="url(#body)" stroke="#8E9BA8" stroke-width="1"/>
<rect x="4" y="5" width="28" height="20" rx="2" fill="{DARK}"/>
<polyline points="6,16 9,16 11,9 14,22 17,11 20,19 23,14 26,16 30,16" fill="none" stroke="{TEAL}" stroke-width="1.6" stroke-linejoin="round"/>
<circle cx="41" cy="11" r="4.5" fill="{BLUE}"/><circle cx="41" cy="11" r="1.3" fill="{LIGHT}"/>
<circle cx="41" cy="24" r="3.2" fill="#5F6B77"/>
<rect x="4" y="30" width="7" height="4" rx="1" fill="#8E9BA8"/>
<rect x="13" y="30" width="7" height="4" rx="1" fill="#8E9BA8"/>
<rect x="22" y="30" width="7" height="4" rx="1" fill="#8E9BA8"/>
<rect x="4" y="37" width="25" height="2" rx="1" fill="#B7C2CD"/>
<circle cx="41" cy="36" r="2.2" fill="{led}"/>
</g>"""


def cable(x0, x1, y):
    mid = (x0 + x1) / 2
    return (f'<path d="M{x0} {y} Q{mid} {y + 10} {x1} {y}" fill="none" stroke="{DARK}" stroke-width="2.4" stroke-linecap="round"/>'
            f'<rect x="{x1 - 3}" y="{y - 3.5}" width="6" height="7" rx="1.5" fill="{BLUE}"/>'
            f'<rect x="{x0 - 3}" y="{y - 3.5}" width="6" height="7" rx="1.5" fill="{BLUE}"/>')


def cable_point(x0, x1, y, t):
    # Point on the quadratic cable at parameter t.
    mid = (x0 + x1) / 2
    px = (1 - t) ** 2 * x0 + 2 * (1 - t) * t * mid + t * t * x1
    py = (1 - t) ** 2 * y + 2 * (1 - t) * t * (y + 10) + t * t * y
    return px, py


def scene(frame=None):
    parts = [backdrop(139, 111), laptop(8, 38), instrument(84, 30, led=AMBER if frame in (None, 0, 2) else "#C9B39E")]
    parts.append(cable(56, 86, 70))
    if frame is not None:
        spacing = 0.25
        for k in range(4):
            t = 0.08 + k * spacing + frame * spacing / 4
            if t > 0.95:
                t -= 4 * spacing
            if t < 0.05:
                continue
            px, py = cable_point(56, 86, 70, t)
            parts.append(f'<rect x="{px - 2.6:.2f}" y="{py - 8.6:.2f}" width="5.2" height="5.2" rx="1.2" fill="{TEAL}"/>')
    return "\n".join(parts)


def package_picture():
    return "\n".join([
        backdrop(139, 111),
        # a second parcel behind
        f'<g transform="translate(18,30)"><path d="M0 14 L26 4 L52 14 L26 24 Z" fill="#F9D2AE"/>'
        f'<path d="M0 14 L26 24 L26 54 L0 44 Z" fill="#E89A5E"/><path d="M52 14 L26 24 L26 54 L52 44 Z" fill="#F4B07A"/></g>',
        # the chosen parcel
        f'<g transform="translate(52,38)"><path d="M0 16 L32 4 L64 16 L32 28 Z" fill="#FBDDBF"/>'
        f'<path d="M0 16 L32 28 L32 66 L0 54 Z" fill="url(#box)"/><path d="M64 16 L32 28 L32 66 L64 54 Z" fill="#F6BC8A"/>'
        f'<path d="M16 10 L48 22 L48 30 L16 18 Z" fill="#FFFFFF" opacity="0.55"/>'
        f'<rect x="38" y="34" width="18" height="18" rx="2" fill="{BLUE}" transform="skewY(-20) translate(0,16)"/>'
        f'<rect x="42" y="38" width="10" height="10" rx="1" fill="{TEAL}" transform="skewY(-20) translate(0,16)"/></g>',
        f'<circle cx="112" cy="28" r="11" fill="{TEAL}"/><path d="M106 28 L111 33 L119 23" fill="none" stroke="#FFFFFF" stroke-width="3" stroke-linecap="round" stroke-linejoin="round"/>',
    ])


def readme_picture():
    lines = "\n".join(f'<rect x="48" y="{30 + 8 * i}" width="{38 - (i % 3) * 8}" height="3" rx="1.5" fill="#9AA7B4"/>' for i in range(7))
    return "\n".join([
        backdrop(139, 111),
        '<path d="M38 14 L84 14 L100 30 L100 98 L38 98 Z" fill="#FFFFFF" stroke="#B7C2CD" stroke-width="1.2"/>',
        '<path d="M84 14 L84 30 L100 30 Z" fill="#D5DDE5"/>',
        f'<rect x="48" y="21" width="26" height="4" rx="2" fill="{BLUE}"/>',
        lines,
        f'<circle cx="96" cy="76" r="13" fill="#FFFFFF" fill-opacity="0.6" stroke="{BLUE}" stroke-width="4"/>',
        f'<path d="M105 85 L118 98" stroke="{DARK}" stroke-width="6" stroke-linecap="round"/>',
    ])


def settings_picture():
    return "\n".join([
        scene(),
        # the serial plug, shown enlarged above the cable
        f'<g transform="translate(56,12)"><path d="M0 0 L26 0 L22 14 L4 14 Z" fill="{BLUE}"/>'
        + "".join(f'<circle cx="{5 + 4 * i}" cy="5" r="1.2" fill="{LIGHT}"/>' for i in range(5))
        + "".join(f'<circle cx="{7 + 4 * i}" cy="10" r="1.2" fill="{LIGHT}"/>' for i in range(4))
        + f'</g><path d="M69 27 L69 36" stroke="{DARK}" stroke-width="1.5" stroke-dasharray="2 2"/>',
    ])


RED = "#C8553D"


def finished_picture(badge, led=AMBER):
    # The instrument with a round badge at its upper right: what became of the update.
    return "\n".join([
        f'<rect x="4" y="4" width="154" height="197" rx="14" fill="{LIGHT}"/>',
        f'<ellipse cx="81" cy="120" rx="70" ry="62" fill="url(#glow)"/>',
        instrument(26, 82, 2.2, led=led),
        badge,
    ])


def badge(colour, mark):
    return (f'<circle cx="120" cy="54" r="24" fill="{colour}"/>\n'
            f'<path d="{mark}" fill="none" stroke="#FFFFFF" stroke-width="6" stroke-linecap="round" stroke-linejoin="round"/>')


SUCCEEDED = badge(TEAL, "M108 54 L117 63 L132 45")
FAILED = badge(RED, "M110 44 L130 64 M130 44 L110 64")   # a cross
CANCELLED = badge("#8E9BA8", "M108 54 L132 54")            # a bar: stopped on request


def icon():
    # The instrument on a blue tile, with a badge that says "new firmware goes in": it must
    # still read at 16 pixels, so few, large shapes.
    return "\n".join([
        '<rect x="2" y="2" width="60" height="60" rx="13" fill="url(#screen)"/>',
        instrument(6, 17, 0.86),
        f'<circle cx="47" cy="17" r="13" fill="{TEAL}" stroke="#FFFFFF" stroke-width="2.5"/>',
        '<path d="M47 25 L47 10 M40.5 16 L47 9.5 L53.5 16" fill="none" stroke="#FFFFFF" stroke-width="3.6" '
        'stroke-linecap="round" stroke-linejoin="round"/>',
    ])


def main():
    OUT.mkdir(parents=True, exist_ok=True)
    pictures = {
        "step0": svg(139, 111, package_picture()),
        "step1": svg(139, 111, readme_picture()),
        "step2": svg(139, 111, settings_picture()),
        "step3": svg(139, 111, scene()),
        "finished": svg(162, 205, finished_picture(SUCCEEDED)),
        "failed": svg(162, 205, finished_picture(FAILED, led=RED)),
        "cancelled": svg(162, 205, finished_picture(CANCELLED, led="#C9B39E")),
    }
    for frame in range(4):
        pictures[f"upload{frame}"] = svg(139, 111, scene(frame))
    for name, text in pictures.items():
        (OUT / f"{name}.svg").write_text(text)
    ICON.parent.mkdir(parents=True, exist_ok=True)
    ICON.write_text(svg(64, 64, icon()))


if __name__ == "__main__":
    main()
