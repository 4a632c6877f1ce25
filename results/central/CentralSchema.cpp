#include "CentralSchema.h"

#include <optional>

#include "common/Text.h"
#include "results/central/Server.h"

namespace results {
namespace {

// Texts compare by their bytes, as in a station's store, whatever language the server has. Nothing
// refers to runs by a foreign key: their months must come and go by themselves, and the sum of each
// run tells whether it is whole.

constexpr const char* kShared = R"(
CREATE TABLE station (
  id text COLLATE "C" PRIMARY KEY,
  name text COLLATE "C" NOT NULL,
  machine_id text COLLATE "C" NOT NULL,
  location text COLLATE "C"
);
CREATE TABLE plan (
  id text COLLATE "C" PRIMARY KEY,
  bundle text COLLATE "C" NOT NULL,
  bundle_version text COLLATE "C",
  framework_version text COLLATE "C" NOT NULL,
  flow text COLLATE "C" NOT NULL,
  config_sha256 text COLLATE "C" NOT NULL
);
CREATE TABLE spec (
  id text COLLATE "C" PRIMARY KEY,
  bundle text COLLATE "C" NOT NULL,
  flow text COLLATE "C" NOT NULL,
  number text COLLATE "C" NOT NULL,
  test text COLLATE "C" NOT NULL,
  sub_test text COLLATE "C" NOT NULL,
  kind text COLLATE "C" NOT NULL,
  low double precision,
  high double precision,
  expected text COLLATE "C",
  unit text COLLATE "C",
  priority bigint NOT NULL
);
CREATE TABLE instrument (
  id text COLLATE "C" PRIMARY KEY,
  vendor text COLLATE "C",
  model text COLLATE "C",
  serial text COLLATE "C",
  calibrated_us bigint,
  due_us bigint,
  certificate text COLLATE "C"
);
-- Each store numbers its events by itself; here they are numbered as they come, and known by the
-- sum of their content.
CREATE TABLE event (
  station_id text COLLATE "C" NOT NULL,
  sequence bigint NOT NULL,
  at_us bigint NOT NULL,
  kind text COLLATE "C" NOT NULL,
  site text COLLATE "C",
  run_id text COLLATE "C",
  who text COLLATE "C",
  text text COLLATE "C",
  sha256 text COLLATE "C" NOT NULL,
  PRIMARY KEY (station_id, sequence),
  UNIQUE (station_id, sha256)
);
)";

constexpr const char* kRuns = R"(
CREATE TABLE run (
  id text COLLATE "C" PRIMARY KEY,
  station_id text COLLATE "C" NOT NULL,
  site text COLLATE "C" NOT NULL,
  run_index bigint NOT NULL,
  batch text COLLATE "C",
  serial text COLLATE "C" NOT NULL,
  part text COLLATE "C",
  revision text COLLATE "C",
  process text COLLATE "C",
  operator text COLLATE "C",
  plan_id text COLLATE "C" NOT NULL,
  kind text COLLATE "C" NOT NULL,
  retest_of text COLLATE "C",
  reason text COLLATE "C",
  started_us bigint NOT NULL,
  ended_us bigint,
  verdict text COLLATE "C" NOT NULL,
  first_failure bigint,
  message text COLLATE "C",
  records bigint NOT NULL,
  sha256 text COLLATE "C"
) PARTITION BY RANGE (id);
CREATE INDEX run_by_start ON run (started_us);
CREATE INDEX run_by_serial ON run (serial);
CREATE INDEX run_by_plan ON run (plan_id, started_us);
CREATE INDEX run_by_station ON run (station_id, started_us);
CREATE TABLE step (
  run_id text COLLATE "C" NOT NULL,
  step bigint NOT NULL,
  attempt bigint NOT NULL,
  number bigint NOT NULL,
  test text COLLATE "C" NOT NULL,
  started_us bigint NOT NULL,
  ended_us bigint,
  verdict text COLLATE "C" NOT NULL,
  error_domain text COLLATE "C",
  error_code bigint,
  error_text text COLLATE "C",
  PRIMARY KEY (run_id, step, attempt)
) PARTITION BY RANGE (run_id);
CREATE INDEX step_repeated ON step (run_id) WHERE attempt > 1;
CREATE TABLE measurement (
  run_id text COLLATE "C" NOT NULL,
  sequence bigint NOT NULL,
  step bigint NOT NULL,
  attempt bigint NOT NULL,
  superseded bigint NOT NULL,
  spec_id text COLLATE "C" NOT NULL,
  value double precision,
  text text COLLATE "C",
  verdict text COLLATE "C" NOT NULL,
  message text COLLATE "C",
  PRIMARY KEY (run_id, sequence)
) PARTITION BY RANGE (run_id);
CREATE INDEX measurement_by_spec ON measurement (spec_id);
CREATE INDEX measurement_failed ON measurement (run_id) WHERE verdict = 'FAIL';
CREATE TABLE attribute (
  run_id text COLLATE "C" NOT NULL,
  sequence bigint NOT NULL,
  name text COLLATE "C" NOT NULL,
  value text COLLATE "C",
  PRIMARY KEY (run_id, sequence, name)
) PARTITION BY RANGE (run_id);
CREATE TABLE run_instrument (
  run_id text COLLATE "C" NOT NULL,
  name text COLLATE "C" NOT NULL,
  instrument_id text COLLATE "C" NOT NULL,
  firmware text COLLATE "C",
  due_us bigint,
  state text COLLATE "C" NOT NULL,
  PRIMARY KEY (run_id, name)
) PARTITION BY RANGE (run_id);
)";

// The id of a run begins with its time, so a month is a range of ids. Its parts are attached when
// they are complete: that keeps nobody from reading or writing the others, however long it waits.
//
// Ids and starts differ by more than a day only where a clock was set in between. `from_us` and
// `until_us` are wide enough for all starts of a month's runs, so `run_ids` tells between which ids
// the runs of a span of time are.
constexpr const char* kMonths = R"(
CREATE TABLE month (
  name text COLLATE "C" PRIMARY KEY,
  low text COLLATE "C" NOT NULL,
  high text COLLATE "C" NOT NULL,
  from_us bigint NOT NULL,
  until_us bigint NOT NULL,
  made_us bigint NOT NULL,
  dropped_us bigint
);
CREATE FUNCTION now_us() RETURNS bigint LANGUAGE sql AS $$
  SELECT (extract(epoch FROM clock_timestamp()) * 1000000)::bigint
$$;
CREATE FUNCTION run_id_at(at_us bigint) RETURNS text LANGUAGE sql IMMUTABLE STRICT AS $$
  SELECT substr(digits, 1, 8) || '-' || substr(digits, 9)
  FROM (SELECT lpad(to_hex(greatest(at_us, 0) / 1000), 12, '0') AS digits) AS id
$$;
CREATE FUNCTION run_ids(since_us bigint, before_us bigint, OUT low text, OUT high text)
LANGUAGE sql STABLE AS $$
  SELECT coalesce(min(month.low), ''), coalesce(max(month.high), '') FROM month
  WHERE dropped_us IS NULL AND (since_us IS NULL OR month.until_us > since_us)
    AND (before_us IS NULL OR month.from_us < before_us)
$$;
-- Makes the month of an id's time. False: it was dropped, and its runs are not wanted any more.
CREATE FUNCTION make_month(at_us bigint) RETURNS boolean LANGUAGE plpgsql SECURITY DEFINER
SET search_path = pg_catalog, public, pg_temp AS $$
DECLARE
  first_day timestamp := date_trunc('month', timestamp 'epoch' + at_us * interval '1 microsecond');
  new_name text := to_char(first_day, 'YYYY_MM');
  new_low text := public.run_id_at((extract(epoch FROM first_day) * 1000000)::bigint);
  new_high text :=
    public.run_id_at((extract(epoch FROM first_day + interval '1 month') * 1000000)::bigint);
  parent text;
  is_kept boolean;
BEGIN
  IF at_us < 0 OR first_day >= timestamp '2100-01-01' THEN
    RAISE EXCEPTION 'a run of the year %', extract(year FROM first_day) USING ERRCODE = '22008';
  END IF;
  SELECT dropped_us IS NULL INTO is_kept FROM public.month WHERE name = new_name;
  IF FOUND THEN RETURN is_kept; END IF;
  PERFORM pg_advisory_xact_lock(hashtext('quillon'), hashtext('month'));
  SELECT dropped_us IS NULL INTO is_kept FROM public.month WHERE name = new_name;
  IF FOUND THEN RETURN is_kept; END IF;
  FOREACH parent IN ARRAY ARRAY['run', 'step', 'measurement', 'attribute', 'run_instrument'] LOOP
    EXECUTE format('CREATE TABLE public.%I (LIKE public.%I INCLUDING DEFAULTS INCLUDING STORAGE)',
                   parent || '_' || new_name, parent);
    EXECUTE format('ALTER TABLE public.%I ATTACH PARTITION public.%I FOR VALUES FROM (%L) TO (%L)',
                   parent, parent || '_' || new_name, new_low, new_high);
  END LOOP;
  INSERT INTO public.month (name, low, high, from_us, until_us, made_us)
  VALUES (new_name, new_low, new_high,
          (extract(epoch FROM first_day - interval '1 day') * 1000000)::bigint,
          (extract(epoch FROM first_day + interval '1 month 1 day') * 1000000)::bigint,
          public.now_us());
  RETURN true;
END
$$;
-- Tells of a run whose start is elsewhere than its id says.
CREATE FUNCTION widen_month(run_id text, started_us bigint) RETURNS void
LANGUAGE sql SECURITY DEFINER SET search_path = pg_catalog, public, pg_temp AS $$
  UPDATE public.month
  SET from_us = least(from_us, started_us), until_us = greatest(until_us, started_us + 1)
  WHERE low <= run_id AND run_id < high AND (started_us < from_us OR started_us >= until_us)
$$;
CREATE FUNCTION drop_month(old_name text) RETURNS void LANGUAGE plpgsql
SET search_path = pg_catalog, public, pg_temp AS $$
DECLARE
  parent text;
BEGIN
  UPDATE public.month SET dropped_us = public.now_us()
  WHERE name = old_name AND dropped_us IS NULL;
  IF NOT FOUND THEN
    RAISE EXCEPTION 'there is no month %', old_name USING HINT = 'Months are named 2026_11.';
  END IF;
  FOREACH parent IN ARRAY ARRAY['run', 'step', 'measurement', 'attribute', 'run_instrument'] LOOP
    EXECUTE format('DROP TABLE public.%I', parent || '_' || old_name);
  END LOOP;
END
$$;
)";

constexpr const char* kStates = R"(
CREATE TABLE station_state (
  station_id text COLLATE "C" PRIMARY KEY,
  heard_us bigint NOT NULL,
  station_us bigint NOT NULL,
  waiting bigint NOT NULL,
  oldest_age_us bigint,
  parked bigint NOT NULL,
  version text COLLATE "C" NOT NULL,
  runs bigint NOT NULL,
  arrived_us bigint,
  last_run_id text COLLATE "C"
);
CREATE FUNCTION station_heard(said jsonb) RETURNS void LANGUAGE sql SECURITY DEFINER
SET search_path = pg_catalog, public, pg_temp AS $$
  INSERT INTO public.station AS known (id, name, machine_id, location)
  VALUES (said->>'id', said->>'name', said->>'machine_id', said->>'location')
  ON CONFLICT (id) DO UPDATE SET location = excluded.location
  WHERE known.location IS DISTINCT FROM excluded.location;
  INSERT INTO public.station_state AS state
    (station_id, heard_us, station_us, waiting, oldest_age_us, parked, version, runs, arrived_us,
     last_run_id)
  VALUES (said->>'id', public.now_us(), (said->>'now_us')::bigint, (said->>'waiting')::bigint,
          (said->>'oldest_age_us')::bigint, (said->>'parked')::bigint, said->>'version',
          (said->>'added')::bigint,
          CASE WHEN (said->>'added')::bigint > 0 THEN public.now_us() END, said->>'last_run_id')
  ON CONFLICT (station_id) DO UPDATE SET
    heard_us = excluded.heard_us, station_us = excluded.station_us, waiting = excluded.waiting,
    oldest_age_us = excluded.oldest_age_us, parked = excluded.parked, version = excluded.version,
    runs = state.runs + excluded.runs,
    arrived_us = coalesce(excluded.arrived_us, state.arrived_us),
    last_run_id = coalesce(excluded.last_run_id, state.last_run_id);
$$;
)";

// Stations may add. Of what is there they may see what tells whether a row is there already.
constexpr const char* kRights = R"(
REVOKE ALL ON FUNCTION make_month(bigint), widen_month(text, bigint), drop_month(text),
  station_heard(jsonb) FROM PUBLIC;
GRANT USAGE ON SCHEMA public TO quillon_station, quillon_reader;
GRANT EXECUTE ON FUNCTION make_month(bigint), widen_month(text, bigint), station_heard(jsonb)
  TO quillon_station;
GRANT INSERT ON station, plan, spec, instrument, event, run, step, measurement, attribute, run_instrument
  TO quillon_station;
GRANT SELECT (id) ON station, plan, spec, instrument TO quillon_station;
GRANT SELECT (id, sha256) ON run TO quillon_station;
GRANT SELECT (station_id, sequence, sha256) ON event TO quillon_station;
GRANT SELECT ON schema_version TO quillon_station;
GRANT SELECT ON schema_version, station, station_state, plan, spec, instrument, event, run, step,
  measurement, attribute, run_instrument, month TO quillon_reader;
)";

// Roles belong to the server and not to the database, so they may be there already.
constexpr const char* kRoles = R"(
DO $$
DECLARE
  needed text;
BEGIN
  FOREACH needed IN ARRAY ARRAY['quillon_station', 'quillon_reader'] LOOP
    IF NOT EXISTS (SELECT FROM pg_roles WHERE rolname = needed) THEN
      EXECUTE format('CREATE ROLE %I NOLOGIN', needed);
    END IF;
  END LOOP;
END
$$
)";

int numberIn(const std::vector<Server::Row>& rows) {
  if (rows.empty() || rows.front().empty() || !rows.front().front()) return 0;
  return quillon::internal::numberIn<int>(*rows.front().front()).value_or(0);
}

bool isThere(Server& server, const std::string& table) {
  return numberIn(server.ask("SELECT count(*) FROM pg_class WHERE oid = to_regclass($1)",
                             {"public." + table})) != 0;
}

/// The version that the database has; 0 when it is empty.
int versionOf(Server& server) {
  if (isThere(server, "schema_version")) {
    return numberIn(server.ask("SELECT coalesce(max(version), 0) FROM public.schema_version"));
  }
  if (isThere(server, "run") || isThere(server, "station")) {
    throw ServerError("the database has tables of something else", "");
  }
  return 0;
}

std::string newerText(int found, int known) {
  return "the server has version " + std::to_string(found) +
         " of the central schema, and this Quillon knows up to " + std::to_string(known) +
         ": a newer one is needed here";
}

void requireFit(Server& server) {
  constexpr int kOldest = 150000;  // PostgreSQL 15
  if (numberIn(server.ask("SHOW server_version_num")) < kOldest) {
    throw ServerError("the server is older than PostgreSQL 15", "");
  }
  const auto encoding = server.ask("SHOW server_encoding").at(0).at(0).value_or("");
  if (encoding != "UTF8") {
    throw ServerError("the database has the encoding " + encoding + ", and UTF8 is needed", "");
  }
}

void makeRoles(Server& server) {
  try {
    server.run(kRoles);
  } catch (const ServerError& error) {
    if (error.state() != kNoRight) throw;
    throw ServerError("who prepares the server must be allowed to make roles, unless there are " +
                          std::string(kStationRole) + " and " + kReaderRole + " already",
                      error.state());
  }
}

void migrate(Server& server, int before, const std::vector<Migration>& migrations) {
  server.run(
      "CREATE TABLE IF NOT EXISTS schema_version "
      "(version bigint PRIMARY KEY, applied_us bigint NOT NULL)");
  for (const Migration& migration : migrations) {
    if (migration.version <= before) continue;
    for (const std::string& statement : migration.statements) server.run(statement);
    server.ask("INSERT INTO schema_version (version, applied_us) VALUES ($1, now_us())",
               {std::to_string(migration.version)});
  }
  server.run(
      "SELECT make_month(now_us()), make_month((extract(epoch FROM date_trunc('month', now()) + "
      "interval '1 month 1 day') * 1000000)::bigint)");
}

}  // namespace

const std::vector<Migration>& centralMigrations() {
  static const std::vector<Migration> all{
      {1, {kShared, kRuns, kMonths, kStates, kRights}},
  };
  return all;
}

Prepared prepare(Server& server, const std::vector<Migration>& migrations) {
  Prepared result;
  server.transaction([&] {
    requireFit(server);
    server.run("SET LOCAL search_path = public");
    server.run("SELECT pg_advisory_xact_lock(hashtext('quillon'), hashtext('prepare'))");
    result.before = versionOf(server);
    result.after = migrations.back().version;
    if (result.before > result.after) throw ServerError(newerText(result.before, result.after), "");
    makeRoles(server);
    try {
      migrate(server, result.before, migrations);
    } catch (const ServerError& error) {
      if (error.state() != kNoRight) throw;
      throw ServerError(
          std::string("who prepares the server must own the database: ") + error.what(),
          error.state());
    }
  });
  return result;
}

void requireCentralSchema(Server& server) {
  int found = 0;
  try {
    found = numberIn(server.ask("SELECT coalesce(max(version), 0) FROM public.schema_version"));
  } catch (const ServerError& error) {
    if (error.state() == "42P01") {  // undefined_table
      throw ServerError(
          "the database is not prepared yet ('quillon forward --prepare' by its owner does it)",
          error.state());
    }
    throw;
  }
  const int known = centralMigrations().back().version;
  if (found > known) throw ServerError(newerText(found, known), "");
  if (found < known) {
    throw ServerError("the server has version " + std::to_string(found) +
                          " of the central schema, and version " + std::to_string(known) +
                          " is needed ('quillon forward --prepare' by its owner brings it there)",
                      "");
  }
}

}  // namespace results
