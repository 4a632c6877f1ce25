#pragma once

#include <soci/soci.h>

#include "results/Rows.h"
#include "results/Statements.h"

namespace results {

// Internal to the library, for its sources only.

/// Enters what belongs to runs, on one connection, which must live longer.
struct RunInserts {
  explicit RunInserts(soci::session& session)
      : session(session),
        plan(session, kNothing),
        spec(session, kNothing),
        instrument(session, kNothing),
        run(session),
        measurement(session),
        attribute(session),
        runInstrument(session),
        numbered(session) {}

  /// Events are numbered by store: this one gets the next number.
  void event(Event event) {
    long long last = 0;
    session << "SELECT coalesce(max(sequence), 0) FROM event WHERE station_id = :station",
        soci::use(event.stationId), soci::into(last);
    event.sequence = last + 1;
    numbered(event);
  }

  /// For rows that runs share.
  static constexpr const char* kNothing = "ON CONFLICT DO NOTHING";

  soci::session& session;
  Insert<Plan> plan;
  Insert<Spec> spec;
  Insert<Instrument> instrument;
  Insert<Run> run;
  Insert<Measurement> measurement;
  Insert<Attribute> attribute;
  Insert<RunInstrument> runInstrument;
  Insert<Event> numbered;
};

}  // namespace results
