// The scripts and style sheets a report inlines, compiled into the program
// from third_party/uplot and tools/runner/report (cmake/embed.cmake, which
// also refuses a file that a <script> or <style> element cannot hold).
#ifndef ORBELLE_RUNNER_REPORT_ASSETS_H
#define ORBELLE_RUNNER_REPORT_ASSETS_H

#include <string_view>

namespace runner::assets {

extern const std::string_view uplot_js;   // uPlot's minified build
extern const std::string_view uplot_css;  // uPlot's style sheet
extern const std::string_view page_js;    // draws the charts from the run's seconds
extern const std::string_view page_css;   // the report's own look

}  // namespace runner::assets

#endif
