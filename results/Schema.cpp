#include "Schema.h"

namespace results {

// One text for every engine: bigint for integers, double precision for numbers, text for the rest.

const std::vector<Migration>& migrations() {
  static const std::vector<Migration> all{
      {1,
       {
           R"(CREATE TABLE station (
  id text PRIMARY KEY,
  name text NOT NULL,
  machine_id text NOT NULL,
  location text
))",
           R"(CREATE TABLE plan (
  id text PRIMARY KEY,
  bundle text NOT NULL,
  bundle_version text,
  framework_version text NOT NULL,
  flow text NOT NULL,
  config_sha256 text NOT NULL
))",
           R"(CREATE TABLE spec (
  id text PRIMARY KEY,
  bundle text NOT NULL,
  flow text NOT NULL,
  number text NOT NULL,
  test text NOT NULL,
  sub_test text NOT NULL,
  kind text NOT NULL,
  low double precision,
  high double precision,
  expected text,
  unit text,
  priority bigint NOT NULL
))",
           R"(CREATE TABLE run (
  id text PRIMARY KEY,
  station_id text NOT NULL REFERENCES station (id),
  site text NOT NULL,
  run_index bigint NOT NULL,
  batch text,
  serial text NOT NULL,
  part text,
  revision text,
  process text,
  operator text,
  plan_id text NOT NULL REFERENCES plan (id),
  kind text NOT NULL,
  retest_of text,
  reason text,
  started_us bigint NOT NULL,
  ended_us bigint,
  verdict text NOT NULL,
  first_failure bigint,
  message text,
  records bigint NOT NULL,
  sha256 text
))",
           "CREATE INDEX run_by_start ON run (started_us)",
           "CREATE INDEX run_by_serial ON run (serial)",
           "CREATE INDEX run_by_plan ON run (plan_id, started_us)",
           R"(CREATE INDEX run_unfinished ON run (started_us)
  WHERE verdict IN ('RUNNING', 'INCOMPLETE'))",
           R"(CREATE TABLE step (
  run_id text NOT NULL REFERENCES run (id),
  step bigint NOT NULL,
  attempt bigint NOT NULL,
  number bigint NOT NULL,
  test text NOT NULL,
  started_us bigint NOT NULL,
  ended_us bigint,
  verdict text NOT NULL,
  error_domain text,
  error_code bigint,
  error_text text,
  PRIMARY KEY (run_id, step, attempt)
))",
           R"(CREATE TABLE measurement (
  run_id text NOT NULL REFERENCES run (id),
  sequence bigint NOT NULL,
  step bigint NOT NULL,
  attempt bigint NOT NULL,
  superseded bigint NOT NULL,
  spec_id text NOT NULL REFERENCES spec (id),
  value double precision,
  text text,
  verdict text NOT NULL,
  message text,
  PRIMARY KEY (run_id, sequence)
))",
           "CREATE INDEX measurement_by_spec ON measurement (spec_id)",
           R"(CREATE TABLE attribute (
  run_id text NOT NULL REFERENCES run (id),
  sequence bigint NOT NULL,
  name text NOT NULL,
  value text,
  PRIMARY KEY (run_id, sequence, name)
))",
           R"(CREATE TABLE instrument (
  id text PRIMARY KEY,
  vendor text,
  model text,
  serial text,
  calibrated_us bigint,
  due_us bigint,
  certificate text
))",
           R"(CREATE TABLE run_instrument (
  run_id text NOT NULL REFERENCES run (id),
  name text NOT NULL,
  instrument_id text NOT NULL REFERENCES instrument (id),
  firmware text,
  due_us bigint,
  state text NOT NULL,
  PRIMARY KEY (run_id, name)
))",
           R"(CREATE TABLE event (
  station_id text NOT NULL REFERENCES station (id),
  sequence bigint NOT NULL,
  at_us bigint NOT NULL,
  kind text NOT NULL,
  site text,
  run_id text,
  who text,
  text text,
  PRIMARY KEY (station_id, sequence)
))",
           // Who has the store open, and whose the unfinished runs are: of use at the station only.
           R"(CREATE TABLE session (
  id text PRIMARY KEY,
  station_id text NOT NULL REFERENCES station (id),
  boot_id text NOT NULL,
  pid bigint NOT NULL,
  process_started bigint NOT NULL,
  opened_us bigint NOT NULL,
  closed_us bigint
))",
           R"(CREATE TABLE running (
  run_id text PRIMARY KEY REFERENCES run (id),
  session_id text NOT NULL REFERENCES session (id)
))",
       }},
  };
  return all;
}

}  // namespace results
