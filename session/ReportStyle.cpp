#include "session/ReportStyle.h"

namespace velqor {

std::string_view ReportStyle::css() {
  return R"css(
* { box-sizing: border-box; }
body { font: 15px/1.45 system-ui, sans-serif; color: #1d1f24; background: #f3f4f6; margin: 0; padding: 1.5em; }
body > * { max-width: 76em; margin-left: auto; margin-right: auto; }
header h1 { margin: 0; }
.count { color: #4b5060; margin: .2em 0 1em; }
table { border-collapse: collapse; width: 100%; background: #fff; }
td, th { padding: .3em .6em; text-align: left; vertical-align: top; border-bottom: 1px solid #e4e6ea; }
th { background: #eceef2; font-weight: 600; }
.index td:first-child { white-space: nowrap; }
.verdict { display: inline-block; padding: 0 .55em; border-radius: 1em; font-size: .8em; font-weight: 600;
           vertical-align: middle; color: #fff; white-space: nowrap; }
.verdict.pass { background: #14803c; }
.verdict.fail { background: #b3261e; }
section.scenario { background: #fff; border-radius: 10px; padding: .6em 1.2em 1em; margin-top: 1.2em;
                   box-shadow: 0 1px 3px rgba(0,0,0,.12); border-left: 6px solid #14803c; }
section.scenario.failed { border-left-color: #b3261e; }
section h2 { margin: .3em 0 .1em; font-size: 1.25em; }
h3 { font-size: 1em; margin: 1em 0 .35em; color: #30343c; }
h4 { margin: .2em 0 .4em; font-size: .95em; color: #4b5060; }
.description { margin: .1em 0 .5em; color: #4b5060; }
.summary { background: #f0f4fb; border-radius: 6px; padding: .5em .8em; }
.facts { display: grid; grid-template-columns: 1fr 1fr; gap: 1em; }
.facts ul, .answers { margin: .2em 0; padding-left: 1.2em; }
.problems { background: #fdecea; border-radius: 6px; padding: .4em .8em; color: #7a1a14; }
.problems ul { margin: .2em 0; }
.quiet { color: #80848f; }
.steps code { font-size: .95em; }
.strip { display: flex; flex-wrap: wrap; gap: .8em; }
.screen-card { width: 15em; border: 2px solid #1d1f24; border-radius: 16px; padding: .6em .8em; background: #fcfcfd;
               font-size: .9em; }
.screen-card .card-title { font-weight: 600; margin-bottom: .2em; }
.screen-card.alert .message { margin: .3em 0; }
.alert-buttons { display: flex; gap: .4em; flex-wrap: wrap; }
.alert-button { border: 1px solid #8a8f98; border-radius: 6px; padding: 0 .5em; }
.alert-button[data-style="cancel"] { font-weight: 600; }
.alert-button.tapped { background: #1d4f91; color: #fff; border-color: #1d4f91; }
.card-end { margin-top: .4em; color: #1d4f91; }
.timeline { font-size: .85em; color: #4b5060; }
.timeline span { font-family: ui-monospace, monospace; }
.answers li { margin: .25em 0; }
.answers li.ok b { color: #14803c; }
.answers li.err b, .answers li.err { color: #b3261e; }
.answers li.open { color: #8a5a00; }
.raw { font-family: ui-monospace, monospace; font-size: .8em; color: #4b5060; }
details.fold summary { cursor: pointer; }
details.fold .length { color: #80848f; }
details.fold .whole { white-space: pre-wrap; }
.raw, .summary, .problems, figcaption, td { overflow-wrap: anywhere; }
.media { display: grid; grid-template-columns: 1fr 1fr; gap: 1em; }
.media .column { background: #f7f8fa; border-radius: 8px; padding: .5em .7em; }
figure { margin: .4em 0; display: flex; gap: .7em; align-items: flex-start; }
figure img { max-width: 160px; max-height: 160px; border: 1px solid #c9ccd3; border-radius: 4px; background: #fff; }
figure .tile { width: 160px; height: 90px; display: flex; align-items: center; justify-content: center;
               background: #2b2f38; color: #fff; border-radius: 4px; flex: none; }
figcaption { font-size: .88em; min-width: 0; }
@media (max-width: 800px) { .facts, .media { grid-template-columns: 1fr; } }
)css";
}

}  // namespace velqor
