// How the demo's page looks: light and dark, from a telephone's width on. No script, no font, nothing from elsewhere.

#pragma once

namespace tarn::tool {

inline constexpr char kDemoStyle[] = R"(
:root { color-scheme: light dark; --ink: #1b2127; --soft: #59636e; --line: #dde2e7; --paper: #ffffff; --back: #f3f5f7;
        --good: #15733f; --bad: #b3261e; --bar: #d3e4f4; --link: #0b5cad;
        --check: repeating-conic-gradient(#e3e6ea 0 25%, #f8f9fa 0 50%) 0 0 / 16px 16px; }
@media (prefers-color-scheme: dark) {
  :root { --ink: #e5e9ed; --soft: #9aa5b0; --line: #2c343c; --paper: #1a2026; --back: #11161a; --good: #55cf92;
          --bad: #ff857b; --bar: #24415a; --link: #7db8f0;
          --check: repeating-conic-gradient(#2a3138 0 25%, #1f252b 0 50%) 0 0 / 16px 16px; }
}
* { box-sizing: border-box; }
html { scroll-behavior: smooth; }
@media (prefers-reduced-motion: reduce) { html { scroll-behavior: auto; } }
body { margin: 0 auto; max-width: 1240px; padding: 40px 20px 60px; background: var(--back); color: var(--ink);
       font: 16px/1.5 system-ui, sans-serif; }
h1, h2, h3 { line-height: 1.2; text-wrap: balance; }
h1 { margin: 0 0 12px; font-size: 36px; }
h2 { margin: 0 0 12px; font-size: 26px; }
h3 { margin: 32px 0 0; font-size: 18px; }
p { margin: 0 0 12px; max-width: 72ch; }
a { color: var(--link); }
.lead { font-size: 18px; }
.after { margin-top: 12px; }
.soft { color: var(--soft); }
.yes { color: var(--good); }
.no { color: var(--bad); font-weight: 600; }
.card { background: var(--paper); border: 1px solid var(--line); border-radius: 10px; padding: 20px; margin-top: 20px; }
.facts { display: grid; grid-template-columns: repeat(auto-fit, minmax(150px, 1fr)); gap: 12px; margin: 24px 0 0; }
.facts div { background: var(--paper); border: 1px solid var(--line); border-radius: 10px; padding: 14px 16px; }
.facts dt { color: var(--soft); font-size: 14px; }
.facts dd { margin: 0; font-size: 14px; }
.facts .figure { font-size: 26px; font-weight: 650; line-height: 1.3; }
.contents { display: grid; grid-template-columns: repeat(auto-fill, minmax(150px, 1fr)); gap: 12px; list-style: none;
            margin: 24px 0 0; padding: 0; }
.contents a { display: block; height: 100%; background: var(--paper); border: 1px solid var(--line);
              border-radius: 10px; overflow: hidden; color: inherit; text-decoration: none; padding-bottom: 12px; }
.contents a:hover, .contents a:focus-visible { border-color: var(--link); }
.contents img { width: 100%; height: auto; aspect-ratio: 8 / 5; object-fit: cover; background: var(--check); }
.contents strong, .contents span { display: block; padding: 0 12px; line-height: 1.3; }
.contents strong { padding-top: 8px; }
.contents span { padding-top: 4px; color: var(--soft); font-size: 13px; }
section { margin-top: 56px; padding-top: 28px; border-top: 1px solid var(--line); }
figure { margin: 0; min-width: 0; }
img { display: block; }
figure a { display: block; background: var(--check); border: 1px solid var(--line); }
figure a img { max-width: 100%; height: auto; margin: 0 auto; }
article.card { display: grid; grid-template-columns: 260px minmax(0, 1fr); gap: 24px; }
article h3 { margin: 0; }
article figure a { background: none; border: 0; }
article img { max-height: 320px; width: auto; border: 1px solid var(--line); }
.table { overflow-x: auto; }
table { width: 100%; border-collapse: collapse; font-variant-numeric: tabular-nums; font-size: 15px; }
thead th { font-weight: 500; color: var(--soft); font-size: 13px; vertical-align: bottom; }
th, td { padding: 6px 10px; text-align: right; border-bottom: 1px solid var(--line); }
td, tbody th { white-space: nowrap; }
th:first-child { text-align: left; padding-left: 0; font-weight: 400; }
tbody tr:last-child > * { border-bottom: 0; }
tr.sum > * { font-weight: 600; }
.bar { background: linear-gradient(var(--bar), var(--bar)) no-repeat right center / var(--part) 70%; }
.bar.wide { width: 34%; background-position: left center; }
.gallery { display: grid; grid-template-columns: repeat(auto-fill, minmax(min(100%, 220px), 1fr)); gap: 24px 20px;
           margin-top: 20px; align-items: start; }
.gallery img { width: 100%; max-height: 420px; object-fit: contain; }
figcaption > * { display: block; margin-top: 4px; font-size: 13px; line-height: 1.4; }
figcaption strong { margin-top: 8px; font-size: 15px; }
code, pre { font-family: ui-monospace, monospace; font-size: 12px; }
code { overflow-wrap: anywhere; }
pre { margin: 8px 0 0; padding: 10px 12px; overflow-x: auto; background: var(--back); border-radius: 6px; }
.told { background: var(--paper); border: 1px solid var(--line); border-radius: 10px; padding: 12px 16px 14px;
        margin-top: 20px; }
.told strong { margin-top: 0; }
footer { margin-top: 56px; padding-top: 20px; border-top: 1px solid var(--line); font-size: 14px; }
@media (max-width: 760px) {
  body { padding: 24px 16px 40px; }
  h1 { font-size: 30px; }
  article.card { grid-template-columns: minmax(0, 1fr); gap: 14px; }
  article img { max-height: none; }
  .card { padding: 14px; }
  table { font-size: 12.5px; }
  thead th { font-size: 12px; }
  th, td { padding: 5px 5px; }
  tbody th { white-space: normal; overflow-wrap: anywhere; }
  .gallery { grid-template-columns: repeat(auto-fill, minmax(min(100%, 160px), 1fr)); gap: 20px 14px; }
  .bar.wide { width: 24%; }
}
)";

}  // namespace tarn::tool
