/* Draws the load report's charts with uPlot from the run's seconds (the JSON
   element "run-data": one array per measure, one entry per second, null where
   a second had no latency). Once a chart is drawn its figure records in
   data-drawn how many canvas pixels carry one of its series' colours, so that
   a check in a browser can tell a drawn chart from an empty one. The page
   logs nothing to the console: anything there is an error. */
(function () {
  "use strict";
  var data = JSON.parse(document.getElementById("run-data").textContent);
  var charts = [
    { id: "throughput", whole: true, series: [["requests/s", "calls", "#2563eb"]] },
    { id: "failures", whole: true, series: [["failures/s", "failures", "#dc2626"]] },
    { id: "latency", whole: false, series: [["p50 ms", "p50", "#16a34a"],
                                            ["p95 ms", "p95", "#d97706"],
                                            ["p99 ms", "p99", "#7c3aed"]] },
    { id: "users", whole: true, series: [["users", "users", "#0d9488"]] },
    { id: "rate", whole: false, series: [["iterations/s", "iterations", "#2563eb"],
                                         ["target/s", "target", "#64748b"],
                                         ["dropped/s", "dropped", "#dc2626"]] },
    // The name chosen in the select: its latency by second, and its
    // spectrum on a log scale of 1/(1 - percentile).
    { id: "name", whole: false, named: true, series: [["p50 ms", "p50", "#16a34a"],
                                                      ["p95 ms", "p95", "#d97706"],
                                                      ["p99 ms", "p99", "#7c3aed"]] },
    { id: "spectrum", whole: false, named: true, spectrum: true,
      series: [["service ms", "service", "#2563eb"], ["response ms", "response", "#dc2626"]] }
  ];
  var choice = document.getElementById("name-choice");
  // Steps between ticks: whole seconds on x, and whole numbers for counts.
  var wholeSteps = [1, 2, 5, 10, 15, 30, 60, 120, 300, 600, 900, 1800, 3600, 7200, 18000, 36000,
                    86400, 1e5, 2e5, 5e5, 1e6, 2e6, 5e6, 1e7, 2e7, 5e7, 1e8];
  var height = 240;
  var plots = [];

  function rgb(hex) {
    return [1, 3, 5].map(function (i) { return parseInt(hex.substr(i, 2), 16); });
  }

  // Opaque pixels within a small distance of one of the colours: lines and
  // points, not the grey grid, the black axes nor the translucent fills.
  function countDrawn(canvas, colours) {
    var px = canvas.getContext("2d").getImageData(0, 0, canvas.width, canvas.height).data;
    var n = 0;
    for (var i = 0; i < px.length; i += 4) {
      if (px[i + 3] < 160) continue;
      for (var k = 0; k < colours.length; k++) {
        var c = colours[k];
        if (Math.abs(px[i] - c[0]) + Math.abs(px[i + 1] - c[1]) + Math.abs(px[i + 2] - c[2]) < 60) {
          n++;
          break;
        }
      }
    }
    return n;
  }

  function clock(s) {
    if (s < 60) return s + " s";
    var rest = s % 60;
    return Math.floor(s / 60) + ":" + (rest < 10 ? "0" : "") + rest;
  }

  function widthOf(figure) {
    return Math.max(280, figure.clientWidth - 20);
  }

  // The page's height once drawn, for a screenshot of the whole page.
  setTimeout(function () {
    document.documentElement.setAttribute("data-height", document.documentElement.scrollHeight);
  }, 0);
  if (data.seconds.length === 0) return;
  var single = data.seconds.length === 1;
  var first = data.seconds[0];
  // "99.9%" for the x of a spectrum, 1/(1 - p).
  function percentile(x) {
    var p = 100 * (1 - 1 / x);
    return (p < 99 ? p.toFixed(0) : String(Number(p.toPrecision(6)))) + "%";
  }

  // Ticks of a spectrum at whole decades of 1/(1 - p): 0%, 90%, 99%, ...
  function decades(u, axis, min, max) {
    var ticks = [];
    for (var x = 1; x <= max * 1.0001; x *= 10) if (x >= min / 1.0001) ticks.push(x);
    return ticks;
  }

  function columnsOf(chart) {
    if (!chart.named) {
      return [data.seconds].concat(chart.series.map(function (s) { return data[s[1]]; }));
    }
    var name = data.names[choice && choice.value ? Number(choice.value) : 0] || {};
    var x = chart.spectrum ? name.x || [] : data.seconds;
    return [x].concat(chart.series.map(function (s) { return name[s[1]] || x.map(function () { return null; }); }));
  }

  charts.forEach(function (chart) {
    var figure = document.getElementById("chart-" + chart.id);
    if (chart.named && data.names.length === 0) return;
    var colours = chart.series.map(function (s) { return rgb(s[2]); });
    var opts = {
      width: widthOf(figure),
      height: height,
      scales: {
        // A spectrum ends half a decade beyond its last point, so that the
        // last tick's label fits.
        x: chart.spectrum ? { time: false, distr: 3, log: 10,
                              range: function (u, min, max) { return [1, Math.max(10, max * 3)]; } } : {
          time: false,
          // uPlot spans one point over 0..100; one second spans one second.
          range: function (u, min, max) { return single ? [first, first + 1] : [min, max]; }
        },
        y: {
          range: function (u, min, max) { return [0, max > 0 ? max * 1.1 : 1]; }
        }
      },
      axes: [
        chart.spectrum ? { splits: decades, values: function (u, vals) { return vals.map(percentile); } }
                       : { incrs: wholeSteps, values: function (u, vals) { return vals.map(clock); } },
        chart.whole ? { size: 56, incrs: wholeSteps } : { size: 56 }
      ],
      series: [chart.spectrum
        ? { label: "percentile", value: function (u, v) { return v == null ? "--" : percentile(v); } }
        : { label: "second", value: function (u, v) { return v == null ? "--" : clock(v); } }]
        .concat(chart.series.map(function (s) {
          return { label: s[0], stroke: s[2], width: 2,
                   points: { show: single && !chart.spectrum, size: 8, fill: s[2] } };
        })),
      hooks: {
        draw: [function (u) { figure.setAttribute("data-drawn", countDrawn(u.ctx.canvas, colours)); }]
      }
    };
    plots.push([figure, new uPlot(opts, columnsOf(chart), figure), chart]);
  });
  if (choice) {
    choice.addEventListener("change", function () {
      plots.forEach(function (p) { if (p[2].named) p[1].setData(columnsOf(p[2])); });
    });
  }

  var pending = 0;
  window.addEventListener("resize", function () {
    clearTimeout(pending);
    pending = setTimeout(function () {
      plots.forEach(function (p) { p[1].setSize({ width: widthOf(p[0]), height: height }); });
    }, 100);
  });
})();
