"use strict";
// Draws the charts of a report from the data that the page holds.
const colours = ["#1f5fa8", "#c25b00", "#2d7d46", "#7a3e9d", "#8c6d1f", "#00798c", "#a8324a", "#5b6670"];
const percent = value => (Math.round(value * 10000) / 100).toLocaleString("en-GB") + " %";

function dataset(series, index, numeric) {
  const fixed = {limit: "#b3261e", marks: "#b3261e", bound: "#3c4650", changes: "#111111"};
  const colour = fixed[series.style] || colours[index % colours.length];
  const set = {
    type: series.style === "bars" ? "bar" : "line",
    label: series.name,
    data: numeric ? series.y.map((y, i) => ({x: series.x[i], y: y})) : series.y,
    borderColor: colour,
    backgroundColor: colour,
    borderWidth: 2,
    pointRadius: numeric ? 0 : series.y.length > 100 ? 0 : 3,
    order: series.style === "bars" || series.style === "steps" ? 2 : 1,
    yAxisID: series.isShare ? "share" : "y",
    spanGaps: false,
    clip: 8
  };
  if (series.style === "bars") Object.assign(set, {backgroundColor: colour + "b0", borderWidth: 1});
  if (series.style === "steps") Object.assign(set, {stepped: true, fill: "origin", backgroundColor: colour + "40", borderWidth: 1});
  if (series.style === "limit") Object.assign(set, {borderDash: [6, 4], borderWidth: 1.5, pointRadius: 0});
  if (series.style === "bound") Object.assign(set, {borderWidth: 2, pointRadius: 0, stepped: !numeric});
  if (series.style === "changes") Object.assign(set, {showLine: false, pointRadius: 7, pointStyle: "triangle", order: 0});
  if (series.style === "points") Object.assign(set, {showLine: false, pointRadius: 3});
  if (series.style === "marks") Object.assign(set, {showLine: false, pointRadius: 5, pointStyle: "rectRot", order: 0});
  return set;
}

function draw(canvas, chart) {
  const numeric = chart.labels.length === 0;
  const shares = chart.series.some(series => series.isShare);
  const others = chart.series.some(series => !series.isShare);
  const fromZero = chart.series.some(series => series.style === "bars" || series.style === "steps");
  const title = text => ({display: text !== "", text: text});
  const scales = {
    x: {type: numeric ? "linear" : "category", title: title(chart.xTitle), grid: {display: false},
        ticks: {maxRotation: chart.isWide ? 0 : 50, autoSkipPadding: 16}}
  };
  if (others) scales.y = {beginAtZero: fromZero, title: title(chart.yTitle), position: "left"};
  if (shares) {
    scales.share = {max: 1, min: others ? 0 : undefined, position: others ? "right" : "left",
                    title: title(others ? "Cumulative" : chart.yTitle), ticks: {callback: percent},
                    grid: {drawOnChartArea: !others}};
  }
  new Chart(canvas, {
    type: "line",
    data: {labels: numeric ? undefined : chart.labels,
           datasets: chart.series.map((series, index) => dataset(series, index, numeric))},
    options: {animation: false, maintainAspectRatio: false, responsive: true, devicePixelRatio: 2, scales: scales,
              plugins: {legend: {position: "bottom", labels: {
                boxWidth: 24, boxHeight: 2, filter: item => item.text !== "",
                sort: (a, b) => a.datasetIndex - b.datasetIndex}}}}
  });
}

const charts = JSON.parse(document.getElementById("data").textContent);
document.querySelectorAll("canvas").forEach((canvas, index) => draw(canvas, charts[index]));
