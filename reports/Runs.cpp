#include "reports/Format.h"
#include "reports/Reports.h"

namespace reports {

Report runsReport(results::ReportQueries& queries, const Request& request, std::size_t most) {
  requireRuns(queries, request.filter);
  Report report;
  report.name = "runs";
  report.title = "Runs";
  report.about = aboutOf(request);
  const std::int64_t all = queries.countRuns(request.filter);
  Table table{"runs",
              "Runs, the latest first",
              {{"started", "Started", Kind::Time},
               {"station", "Station"},
               {"site", "Site"},
               {"serial", "Serial number"},
               {"part", "Part"},
               {"process", "Process"},
               {"operator", "Operator"},
               {"kind", "Kind"},
               {"verdict", "Verdict"},
               {"seconds", "Took", Kind::Seconds, "s"},
               {"records", "Records", Kind::Count},
               {"id", "Run"}},
              {}};
  queries.lastRuns(request.filter, most, [&](const results::RunLine& run) {
    Cell took;
    if (run.endedUs) took = static_cast<double>(*run.endedUs - run.startedUs) / 1e6;
    table.rows.push_back({run.startedUs, run.station, run.site, run.serial, run.part, run.process,
                          run.operatorName, text(run.kind), text(run.verdict), took, run.records,
                          run.id});
    request.progress(static_cast<std::int64_t>(table.rows.size()), all);
  });
  if (all > static_cast<std::int64_t>(table.rows.size())) {
    report.notes.push_back("The last " + grouped(static_cast<std::int64_t>(table.rows.size())) +
                           " of " + counted(all, "run") + "; --most N shows more.");
  }
  report.tables.push_back(std::move(table));
  return report;
}

}  // namespace reports
