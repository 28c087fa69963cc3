# The scripts and style sheets the HTML report inlines, compiled into
# orbelle_runner (report_html.cpp is in its list).
set(_report_assets
  uplot_js=${CMAKE_SOURCE_DIR}/third_party/uplot/uPlot.iife.min.js
  uplot_css=${CMAKE_SOURCE_DIR}/third_party/uplot/uPlot.min.css
  page_js=${CMAKE_CURRENT_LIST_DIR}/report/page.js
  page_css=${CMAKE_CURRENT_LIST_DIR}/report/page.css)
set(_report_files "")
foreach(_asset ${_report_assets})
  string(REGEX REPLACE "^[^=]*=" "" _file "${_asset}")
  list(APPEND _report_files ${_file})
endforeach()
# A custom command's arguments split at ";", so the list travels with "|".
string(REPLACE ";" "|" _report_list "${_report_assets}")
set(ORBELLE_REPORT_ASSETS_CPP ${CMAKE_CURRENT_BINARY_DIR}/report_assets.cpp)
add_custom_command(OUTPUT ${ORBELLE_REPORT_ASSETS_CPP}
  COMMAND ${CMAKE_COMMAND} -DOUTPUT=${ORBELLE_REPORT_ASSETS_CPP} -DNAMESPACE=runner::assets
          "-DASSETS=${_report_list}" -P ${CMAKE_SOURCE_DIR}/cmake/embed.cmake
  DEPENDS ${CMAKE_SOURCE_DIR}/cmake/embed.cmake ${_report_files}
  COMMENT "Embedding the report's scripts and style sheets"
  VERBATIM)
target_sources(orbelle_runner PRIVATE ${ORBELLE_REPORT_ASSETS_CPP})
