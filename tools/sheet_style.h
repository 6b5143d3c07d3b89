/**
 * @file
 * How the page of thumbnails looks.
 */
#ifndef ZEL_TOOLS_SHEET_STYLE_H
#define ZEL_TOOLS_SHEET_STYLE_H

/** The style sheet. What is out of sight costs no layout, and no frame changes its size when its
 * image comes. */
constexpr char kSheetStyle[] = R"css(
:root {
  color-scheme: light dark;
  --ground: #f6f6f4; --card: #ffffff; --frame: #eceae6; --text: #1d1d1b; --muted: #686762;
  --line: #dcdad5; --alarm: #a4261d;
  --tint: 48%;
}
@media (prefers-color-scheme: dark) {
  :root {
    --ground: #161617; --card: #202022; --frame: #19191b; --text: #ececea; --muted: #9b9a96;
    --line: #333336; --alarm: #ff8a7d;
    --tint: 62%;
  }
}
* { box-sizing: border-box; }
body {
  margin: 0 auto; padding: 2.5rem clamp(1rem, 4vw, 3rem) 4rem; max-width: 90rem;
  background: var(--ground); color: var(--text);
  font: 15px/1.5 system-ui, -apple-system, "Segoe UI", Roboto, "Noto Sans", sans-serif;
}
h1, h2, p, dl, dd, figure { margin: 0; }
h1 { font-size: 1.7rem; font-weight: 650; letter-spacing: -.015em; line-height: 1.25; }
h2 { font-size: 1.15rem; font-weight: 650; }
.path, dt, .facts, .kind { color: var(--muted); }
.path { overflow-wrap: anywhere; unicode-bidi: isolate; font-size: .87rem; }
dl { display: flex; flex-wrap: wrap; gap: .5rem 2.75rem; margin: 1.5rem 0 1rem; }
dl div { display: flex; flex-direction: column-reverse; }
dt { font-size: .82rem; }
dd { font-size: 1.45rem; font-weight: 600; line-height: 1.2; font-variant-numeric: tabular-nums; }
.bar {
  display: flex; height: .8rem; overflow: hidden; border-radius: .4rem;
  background: var(--card); box-shadow: inset 0 0 0 1px var(--line);
}
.bar i { min-width: 3px; }
.bar i, .dot { background: hsl(var(--hue) 58% var(--tint)); }
.bar i + i { border-left: 1px solid var(--card); }
nav { display: flex; flex-wrap: wrap; gap: .5rem; margin-top: 1rem; }
nav a {
  display: inline-flex; align-items: center; gap: .5rem; padding: .2rem .75rem;
  border: 1px solid var(--line); border-radius: 1rem; background: var(--card);
  color: inherit; text-decoration: none; font-size: .87rem;
}
nav a:hover { border-color: var(--muted); }
.dot { display: inline-block; flex: none; width: .62rem; height: .62rem; border-radius: 50%; }
section { margin-top: 2.75rem; scroll-margin-top: 1rem; }
section header {
  display: flex; flex-wrap: wrap; align-items: baseline; gap: .1rem .65rem;
  padding-bottom: .6rem; margin-bottom: 1.1rem; border-bottom: 1px solid var(--line);
}
.kind { font-size: .82rem; }
section .facts { margin-left: auto; }
section .path { flex-basis: 100%; }
.facts { font-size: .82rem; font-variant-numeric: tabular-nums; white-space: nowrap; }
.grid { display: grid; grid-template-columns: repeat(auto-fill, minmax(10.5rem, 1fr)); gap: 1rem; }
figure {
  content-visibility: auto; contain-intrinsic-size: auto 13.6rem; overflow: hidden;
  border: 1px solid var(--line); border-radius: .6rem; background: var(--card);
}
.frame {
  display: flex; align-items: center; justify-content: center; height: 10rem; padding: .5rem;
  background: var(--frame); color: var(--muted);
}
.frame img { display: block; max-width: 100%; max-height: 100%; width: auto; height: auto; }
figcaption { padding: .5rem .75rem .6rem; }
.name {
  display: block; overflow: hidden; text-overflow: ellipsis; white-space: nowrap;
  unicode-bidi: isolate; font-size: .9rem;
}
.absent { border-style: dashed; }
.absent .frame { color: var(--alarm); font-size: .87rem; }
.empty { margin-top: 2.5rem; color: var(--muted); }
)css";

#endif
