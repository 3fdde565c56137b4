#pragma once
// The style of a classification's page. Most people can tell the colours of the bands apart, in both the
// light and the dark scheme.

namespace brumectl::report {

inline constexpr const char* STYLE = R"(
:root { --ground: #f6f7f9; --card: #fff; --text: #1b1f24; --soft: #5c6670; --line: #e3e6ea;
  --c0: #2f6fde; --c1: #e07b24; --c2: #2a9d6f; --c3: #c8417f; --c4: #8a63d2; --c5: #c2a200; --c6: #2aa5bd;
  --c7: #9a5b3c; --rest: #8b95a1; --none: #cfd5db; --fault: #b3261e; }
@media (prefers-color-scheme: dark) { :root { --ground: #14171b; --card: #1d2127; --text: #e6e9ed;
  --soft: #9aa4af; --line: #323841; --c0: #6aa0ff; --c1: #f29b4f; --c2: #4cc796; --c3: #ec74a8; --c4: #b497f0;
  --c5: #dec33c; --c6: #56c7dc; --c7: #c98f6f; --rest: #7d8792; --none: #4a525c; --fault: #ff8a80; } }
* { box-sizing: border-box; }
body { margin: 0; background: var(--ground); color: var(--text); font: 15px/1.5 system-ui, sans-serif; }
main { max-width: 1000px; margin: 0 auto; padding: 32px 20px 48px; }
h1 { font-size: 24px; margin: 0 0 20px; overflow-wrap: anywhere; }
h2 { font-size: 16px; margin: 0 0 12px; overflow-wrap: anywhere; }
section { background: var(--card); border: 1px solid var(--line); border-radius: 10px; padding: 20px;
  margin-top: 20px; }
.tiles { display: grid; grid-template-columns: repeat(auto-fit, minmax(150px, 1fr)); gap: 12px; }
.tiles div { background: var(--card); border: 1px solid var(--line); border-radius: 10px; padding: 12px 16px; }
.tiles strong { display: block; font-size: 22px; font-variant-numeric: tabular-nums; }
.tiles span, .note { color: var(--soft); }
.note, .fault { margin: 0 0 8px; }
.fault { color: var(--fault); }
.shares { display: block; width: 100%; height: 28px; border-radius: 6px; margin-bottom: 16px; }
.shares rect { stroke: var(--card); stroke-width: 2; vector-effect: non-scaling-stroke; }
.chart { display: block; width: 100%; height: auto; }
.chart text { fill: var(--soft); font-size: 6px; }
.chart .x { text-anchor: middle; }
.chart .y { text-anchor: end; dominant-baseline: middle; }
.grid { stroke: var(--line); vector-effect: non-scaling-stroke; }
.c0 { fill: var(--c0); } .c1 { fill: var(--c1); } .c2 { fill: var(--c2); } .c3 { fill: var(--c3); }
.c4 { fill: var(--c4); } .c5 { fill: var(--c5); } .c6 { fill: var(--c6); } .c7 { fill: var(--c7); }
.rest { fill: var(--rest); } .none { fill: var(--none); }
.legend { list-style: none; display: flex; flex-wrap: wrap; gap: 4px 18px; margin: 12px 0 0; padding: 0; }
.key { width: 11px; height: 11px; margin-right: 7px; }
table { width: 100%; border-collapse: collapse; font-variant-numeric: tabular-nums; }
th, td { padding: 6px 10px; text-align: right; border-bottom: 1px solid var(--line); white-space: nowrap; }
thead th { color: var(--soft); font-weight: 500; }
th:first-child { text-align: left; padding-left: 0; font-weight: 500; white-space: normal;
  overflow-wrap: anywhere; }
tfoot th, tfoot td { border-bottom: 0; font-weight: 600; }
.bar { width: 34%; padding-right: 0; }
.bar svg { display: block; width: 100%; height: 8px; }
.list { overflow: auto; max-height: 32em; }
.list table { table-layout: fixed; }
.list td { vertical-align: top; }
.list th:first-child, .list td:first-child { text-align: left; padding-left: 0; width: 44%; }
.list th, .list td { white-space: normal; overflow-wrap: anywhere; }
.list span { color: var(--soft); }
@media (max-width: 640px) {
  main { padding: 20px 12px 32px; }
  section { padding: 14px 12px; }
  .tiles { grid-template-columns: repeat(2, 1fr); }
  table { font-size: 14px; }
  th, td { padding: 6px 0 6px 8px; }
  .bar { display: none; }
  .chart text { font-size: 13px; }
}
)";

}  // namespace brumectl::report
