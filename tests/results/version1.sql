-- A store as version 1 of the schema left it: two days of a board's test. Never to be changed.
PRAGMA foreign_keys=OFF;
BEGIN TRANSACTION;
CREATE TABLE schema_version (version bigint PRIMARY KEY, applied_us bigint NOT NULL);
INSERT INTO schema_version VALUES(1,1795277893227582);
CREATE TABLE station (
  id text PRIMARY KEY,
  name text NOT NULL,
  machine_id text NOT NULL,
  location text
);
INSERT INTO station VALUES('169cd3463ff52dc997181465800e5ce9','line 3','0123456789abcdef0123456789abcdef','hall 2');
CREATE TABLE plan (
  id text PRIMARY KEY,
  bundle text NOT NULL,
  bundle_version text,
  framework_version text NOT NULL,
  flow text NOT NULL,
  config_sha256 text NOT NULL
);
INSERT INTO "plan" VALUES('bb794ac7319c91c08e623869ae5a821b','board-test','1.2','0.1.0','Production','9f86d081884c7d659a2feaa0c55ad015a3bf4f1b2b0b822cd15d6c15b0f00a08');
CREATE TABLE spec (
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
);
INSERT INTO spec VALUES('ba19c05004550bd09aac40e6fb80d789','board-test','Production','1.1','Version','firmware','match',NULL,NULL,'2.0',NULL,3);
INSERT INTO spec VALUES('6b0bdfbea5067bd11ac8d44efa7b021a','board-test','Production','2.1','Voltages','VBUS','range',4.75,5.25,NULL,'V',3);
INSERT INTO spec VALUES('9b2557ce4c99a5e6e14831b4061ca892','board-test','Production','2.2','Voltages','VREF','range',1.1999999999999999555,1.3000000000000000444,NULL,'V',3);
CREATE TABLE run (
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
);
INSERT INTO run VALUES('01a1fee6-ae8e-773f-ab2b-216f175f370f','169cd3463ff52dc997181465800e5ce9','left',1,'2026-47','QB2601-0001','QB26','C','final','Ada','bb794ac7319c91c08e623869ae5a821b','production',NULL,NULL,1795161660000000,1795161660043000,'PASS',NULL,NULL,3,'daeb85fbec90f72f3c8a8ef26ae609c9a05b1719ff1fd4990068ba7c3e92eb33');
INSERT INTO run VALUES('01a1fee6-ae9e-73f3-abd1-35060604dc59','169cd3463ff52dc997181465800e5ce9','right',2,'2026-47','QB2601-0002','QB26','C','final','Ada','bb794ac7319c91c08e623869ae5a821b','production',NULL,NULL,1795161720000000,1795161720044000,'FAIL',2,NULL,3,'9f3aacc570a89081a411530b52a68516c6597bf04e2a19dcc51f406004934b3b');
INSERT INTO run VALUES('01a1fee6-aeba-724d-89e5-3c4d77885e19','169cd3463ff52dc997181465800e5ce9','left',3,'2026-47','QB2601-0002','QB26','C','final','Ada','bb794ac7319c91c08e623869ae5a821b','retest','01a1fee6-ae9e-73f3-abd1-35060604dc59','contact cleaned',1795161780000000,1795161780045000,'PASS',NULL,NULL,3,'82849146fa4f84b85df5f5aaf2dc83bf6e814e4d7a0e021d30a61e66c1157df1');
INSERT INTO run VALUES('01a1fee6-af19-7cc4-8157-b89a43b5085a','169cd3463ff52dc997181465800e5ce9','right',4,'2026-47','QB2601-0003','QB26','C','final','Ada','bb794ac7319c91c08e623869ae5a821b','production',NULL,NULL,1795161840000000,1795161840076000,'PASS',NULL,NULL,4,'b07e1510916e4f6ae653f2c0ae622e3cf66a609c8a9ce38405a056948ac4000e');
INSERT INTO run VALUES('01a1fee6-af3c-76e9-9509-dc6f2a2ade21','169cd3463ff52dc997181465800e5ce9','left',5,'2026-47','QB2601-0004','QB26','C','final','Ada','bb794ac7319c91c08e623869ae5a821b','production',NULL,NULL,1795161900000000,1795161900019000,'BROKEN_OFF',NULL,'instrument lost: meter, /dev/ttyUSB0',1,'910fd22e8342318e673722f5ae56303b2932540fa8e191722c4933e630bbe8cd');
INSERT INTO run VALUES('01a1fee6-af40-74c0-a03c-79220c3c8622','169cd3463ff52dc997181465800e5ce9','right',6,'2026-47','QB2601-0005','QB26','C','final','Ada','bb794ac7319c91c08e623869ae5a821b','production',NULL,NULL,1795248360000000,1795248360048000,'PASS',NULL,NULL,3,'04b66d18759146f9da41eba6e3bd8ef09cb3d8a29a384616bfad1dd370546c8a');
INSERT INTO run VALUES('01a1fee6-af53-7c24-bac4-0962700aeee7','169cd3463ff52dc997181465800e5ce9','left',7,'2026-47','QB2601-0006','QB26','C','final','Ada','bb794ac7319c91c08e623869ae5a821b','production',NULL,NULL,1795248420000000,1795248420049000,'FAIL',2,NULL,3,'54c91b5c3d9e423ee7babb56e1ef2ac824b7ffaffe7263569e6e9804490411fd');
INSERT INTO run VALUES('01a1fee6-af5c-75db-8b66-de10f6e625bc','169cd3463ff52dc997181465800e5ce9','right',8,'2026-47','QB2601-0004','QB26','C','final','Ada','bb794ac7319c91c08e623869ae5a821b','production',NULL,NULL,1795248480000000,1795248480050000,'PASS',NULL,NULL,3,'f8c6274f1234baa12e9ef7ca68c8604d1b4767147c07f81dc870565e4f6989dd');
INSERT INTO run VALUES('01a1fee6-af6c-770e-8442-6f33c222a9f6','169cd3463ff52dc997181465800e5ce9','left',9,'2026-47','QB2601-0007','QB26','C','final','Ada','bb794ac7319c91c08e623869ae5a821b','production',NULL,NULL,1795248540000000,1795277893515829,'INCOMPLETE',NULL,NULL,1,'f2f207238a25ec923572087eea5d9b4cda067175c2baf73ed270af2e0d7ce9e1');
CREATE TABLE step (
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
);
INSERT INTO step VALUES('01a1fee6-ae8e-773f-ab2b-216f175f370f',1,1,1,'Version',1795161660000000,1795161660012000,'PASS',NULL,NULL,NULL);
INSERT INTO step VALUES('01a1fee6-ae8e-773f-ab2b-216f175f370f',2,1,2,'Voltages',1795161660012000,1795161660043000,'PASS',NULL,NULL,NULL);
INSERT INTO step VALUES('01a1fee6-ae9e-73f3-abd1-35060604dc59',1,1,1,'Version',1795161720000000,1795161720012000,'PASS',NULL,NULL,NULL);
INSERT INTO step VALUES('01a1fee6-ae9e-73f3-abd1-35060604dc59',2,1,2,'Voltages',1795161720012000,1795161720044000,'FAIL',NULL,NULL,NULL);
INSERT INTO step VALUES('01a1fee6-aeba-724d-89e5-3c4d77885e19',1,1,1,'Version',1795161780000000,1795161780012000,'PASS',NULL,NULL,NULL);
INSERT INTO step VALUES('01a1fee6-aeba-724d-89e5-3c4d77885e19',2,1,2,'Voltages',1795161780012000,1795161780045000,'PASS',NULL,NULL,NULL);
INSERT INTO step VALUES('01a1fee6-af19-7cc4-8157-b89a43b5085a',1,1,1,'Version',1795161840000000,1795161840012000,'PASS',NULL,NULL,NULL);
INSERT INTO step VALUES('01a1fee6-af19-7cc4-8157-b89a43b5085a',2,1,2,'Voltages',1795161840012000,1795161840042000,'FAIL',NULL,NULL,NULL);
INSERT INTO step VALUES('01a1fee6-af19-7cc4-8157-b89a43b5085a',2,2,2,'Voltages',1795161840042000,1795161840076000,'PASS',NULL,NULL,NULL);
INSERT INTO step VALUES('01a1fee6-af3c-76e9-9509-dc6f2a2ade21',1,1,1,'Version',1795161900000000,1795161900012000,'PASS',NULL,NULL,NULL);
INSERT INTO step VALUES('01a1fee6-af3c-76e9-9509-dc6f2a2ade21',2,1,2,'Voltages',1795161900012000,1795161900019000,'BROKEN_OFF',NULL,NULL,NULL);
INSERT INTO step VALUES('01a1fee6-af40-74c0-a03c-79220c3c8622',1,1,1,'Version',1795248360000000,1795248360012000,'PASS',NULL,NULL,NULL);
INSERT INTO step VALUES('01a1fee6-af40-74c0-a03c-79220c3c8622',2,1,2,'Voltages',1795248360012000,1795248360048000,'PASS',NULL,NULL,NULL);
INSERT INTO step VALUES('01a1fee6-af53-7c24-bac4-0962700aeee7',1,1,1,'Version',1795248420000000,1795248420012000,'PASS',NULL,NULL,NULL);
INSERT INTO step VALUES('01a1fee6-af53-7c24-bac4-0962700aeee7',2,1,2,'Voltages',1795248420012000,1795248420049000,'FAIL',NULL,NULL,NULL);
INSERT INTO step VALUES('01a1fee6-af5c-75db-8b66-de10f6e625bc',1,1,1,'Version',1795248480000000,1795248480012000,'PASS',NULL,NULL,NULL);
INSERT INTO step VALUES('01a1fee6-af5c-75db-8b66-de10f6e625bc',2,1,2,'Voltages',1795248480012000,1795248480050000,'PASS',NULL,NULL,NULL);
INSERT INTO step VALUES('01a1fee6-af6c-770e-8442-6f33c222a9f6',1,1,1,'Version',1795248540000000,1795248540012000,'PASS',NULL,NULL,NULL);
CREATE TABLE measurement (
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
);
INSERT INTO measurement VALUES('01a1fee6-ae8e-773f-ab2b-216f175f370f',1,1,1,0,'ba19c05004550bd09aac40e6fb80d789',NULL,'2.0','PASS',NULL);
INSERT INTO measurement VALUES('01a1fee6-ae8e-773f-ab2b-216f175f370f',2,2,1,0,'6b0bdfbea5067bd11ac8d44efa7b021a',5.0099999999999997868,NULL,'PASS',NULL);
INSERT INTO measurement VALUES('01a1fee6-ae8e-773f-ab2b-216f175f370f',3,2,1,0,'9b2557ce4c99a5e6e14831b4061ca892',1.2843333333333333268,NULL,'PASS',NULL);
INSERT INTO measurement VALUES('01a1fee6-ae9e-73f3-abd1-35060604dc59',1,1,1,0,'ba19c05004550bd09aac40e6fb80d789',NULL,'2.0','PASS',NULL);
INSERT INTO measurement VALUES('01a1fee6-ae9e-73f3-abd1-35060604dc59',2,2,1,0,'6b0bdfbea5067bd11ac8d44efa7b021a',4.7000000000000001776,NULL,'FAIL','out of limits');
INSERT INTO measurement VALUES('01a1fee6-ae9e-73f3-abd1-35060604dc59',3,2,1,0,'9b2557ce4c99a5e6e14831b4061ca892',1.2853333333333334387,NULL,'PASS',NULL);
INSERT INTO measurement VALUES('01a1fee6-aeba-724d-89e5-3c4d77885e19',1,1,1,0,'ba19c05004550bd09aac40e6fb80d789',NULL,'2.0','PASS',NULL);
INSERT INTO measurement VALUES('01a1fee6-aeba-724d-89e5-3c4d77885e19',2,2,1,0,'6b0bdfbea5067bd11ac8d44efa7b021a',4.9800000000000004263,NULL,'PASS',NULL);
INSERT INTO measurement VALUES('01a1fee6-aeba-724d-89e5-3c4d77885e19',3,2,1,0,'9b2557ce4c99a5e6e14831b4061ca892',1.2863333333333333285,NULL,'PASS',NULL);
INSERT INTO measurement VALUES('01a1fee6-af19-7cc4-8157-b89a43b5085a',1,1,1,0,'ba19c05004550bd09aac40e6fb80d789',NULL,'2.0','PASS',NULL);
INSERT INTO measurement VALUES('01a1fee6-af19-7cc4-8157-b89a43b5085a',2,2,1,1,'6b0bdfbea5067bd11ac8d44efa7b021a',NULL,'nan','FAIL','out of limits');
INSERT INTO measurement VALUES('01a1fee6-af19-7cc4-8157-b89a43b5085a',3,2,2,0,'6b0bdfbea5067bd11ac8d44efa7b021a',5.0300000000000002486,NULL,'PASS',NULL);
INSERT INTO measurement VALUES('01a1fee6-af19-7cc4-8157-b89a43b5085a',4,2,2,0,'9b2557ce4c99a5e6e14831b4061ca892',1.2873333333333334405,NULL,'PASS',NULL);
INSERT INTO measurement VALUES('01a1fee6-af3c-76e9-9509-dc6f2a2ade21',1,1,1,0,'ba19c05004550bd09aac40e6fb80d789',NULL,'2.0','PASS',NULL);
INSERT INTO measurement VALUES('01a1fee6-af40-74c0-a03c-79220c3c8622',1,1,1,0,'ba19c05004550bd09aac40e6fb80d789',NULL,'2.0','PASS',NULL);
INSERT INTO measurement VALUES('01a1fee6-af40-74c0-a03c-79220c3c8622',2,2,1,0,'6b0bdfbea5067bd11ac8d44efa7b021a',4.9900000000000002131,NULL,'PASS',NULL);
INSERT INTO measurement VALUES('01a1fee6-af40-74c0-a03c-79220c3c8622',3,2,1,0,'9b2557ce4c99a5e6e14831b4061ca892',1.2893333333333334422,NULL,'PASS',NULL);
INSERT INTO measurement VALUES('01a1fee6-af53-7c24-bac4-0962700aeee7',1,1,1,0,'ba19c05004550bd09aac40e6fb80d789',NULL,'2.0','PASS',NULL);
INSERT INTO measurement VALUES('01a1fee6-af53-7c24-bac4-0962700aeee7',2,2,1,0,'6b0bdfbea5067bd11ac8d44efa7b021a',5.3099999999999996092,NULL,'FAIL','out of limits');
INSERT INTO measurement VALUES('01a1fee6-af53-7c24-bac4-0962700aeee7',3,2,1,0,'9b2557ce4c99a5e6e14831b4061ca892',1.2903333333333333321,NULL,'PASS',NULL);
INSERT INTO measurement VALUES('01a1fee6-af5c-75db-8b66-de10f6e625bc',1,1,1,0,'ba19c05004550bd09aac40e6fb80d789',NULL,'2.0','PASS',NULL);
INSERT INTO measurement VALUES('01a1fee6-af5c-75db-8b66-de10f6e625bc',2,2,1,0,'6b0bdfbea5067bd11ac8d44efa7b021a',5.0199999999999995736,NULL,'PASS',NULL);
INSERT INTO measurement VALUES('01a1fee6-af5c-75db-8b66-de10f6e625bc',3,2,1,0,'9b2557ce4c99a5e6e14831b4061ca892',1.291333333333333444,NULL,'PASS',NULL);
INSERT INTO measurement VALUES('01a1fee6-af6c-770e-8442-6f33c222a9f6',1,1,1,0,'ba19c05004550bd09aac40e6fb80d789',NULL,'2.0','PASS',NULL);
CREATE TABLE attribute (
  run_id text NOT NULL REFERENCES run (id),
  sequence bigint NOT NULL,
  name text NOT NULL,
  value text,
  PRIMARY KEY (run_id, sequence, name)
);
INSERT INTO attribute VALUES('01a1fee6-ae8e-773f-ab2b-216f175f370f',0,'fixture','F2');
INSERT INTO attribute VALUES('01a1fee6-ae8e-773f-ab2b-216f175f370f',2,'temperature','21');
INSERT INTO attribute VALUES('01a1fee6-ae9e-73f3-abd1-35060604dc59',0,'fixture','F2');
INSERT INTO attribute VALUES('01a1fee6-ae9e-73f3-abd1-35060604dc59',2,'temperature','22');
INSERT INTO attribute VALUES('01a1fee6-aeba-724d-89e5-3c4d77885e19',0,'fixture','F2');
INSERT INTO attribute VALUES('01a1fee6-aeba-724d-89e5-3c4d77885e19',2,'temperature','23');
INSERT INTO attribute VALUES('01a1fee6-af19-7cc4-8157-b89a43b5085a',0,'fixture','F2');
INSERT INTO attribute VALUES('01a1fee6-af19-7cc4-8157-b89a43b5085a',3,'temperature','24');
INSERT INTO attribute VALUES('01a1fee6-af3c-76e9-9509-dc6f2a2ade21',0,'fixture','F2');
INSERT INTO attribute VALUES('01a1fee6-af40-74c0-a03c-79220c3c8622',0,'fixture','F2');
INSERT INTO attribute VALUES('01a1fee6-af40-74c0-a03c-79220c3c8622',2,'temperature','26');
INSERT INTO attribute VALUES('01a1fee6-af53-7c24-bac4-0962700aeee7',0,'fixture','F2');
INSERT INTO attribute VALUES('01a1fee6-af53-7c24-bac4-0962700aeee7',2,'temperature','27');
INSERT INTO attribute VALUES('01a1fee6-af5c-75db-8b66-de10f6e625bc',0,'fixture','F2');
INSERT INTO attribute VALUES('01a1fee6-af5c-75db-8b66-de10f6e625bc',2,'temperature','28');
INSERT INTO attribute VALUES('01a1fee6-af6c-770e-8442-6f33c222a9f6',0,'fixture','F2');
CREATE TABLE instrument (
  id text PRIMARY KEY,
  vendor text,
  model text,
  serial text,
  calibrated_us bigint,
  due_us bigint,
  certificate text
);
INSERT INTO instrument VALUES('7c656cd1d11a690887d100e3aa013603','Example','M1','0815',1769241600000000,1798617600000000,'C-17');
CREATE TABLE run_instrument (
  run_id text NOT NULL REFERENCES run (id),
  name text NOT NULL,
  instrument_id text NOT NULL REFERENCES instrument (id),
  firmware text,
  due_us bigint,
  state text NOT NULL,
  PRIMARY KEY (run_id, name)
);
INSERT INTO run_instrument VALUES('01a1fee6-ae8e-773f-ab2b-216f175f370f','meter','7c656cd1d11a690887d100e3aa013603','2.1',1798617600000000,'valid');
INSERT INTO run_instrument VALUES('01a1fee6-ae9e-73f3-abd1-35060604dc59','meter','7c656cd1d11a690887d100e3aa013603','2.1',1798617600000000,'valid');
INSERT INTO run_instrument VALUES('01a1fee6-aeba-724d-89e5-3c4d77885e19','meter','7c656cd1d11a690887d100e3aa013603','2.1',1798617600000000,'valid');
INSERT INTO run_instrument VALUES('01a1fee6-af19-7cc4-8157-b89a43b5085a','meter','7c656cd1d11a690887d100e3aa013603','2.1',1798617600000000,'valid');
INSERT INTO run_instrument VALUES('01a1fee6-af3c-76e9-9509-dc6f2a2ade21','meter','7c656cd1d11a690887d100e3aa013603','2.1',1798617600000000,'valid');
INSERT INTO run_instrument VALUES('01a1fee6-af40-74c0-a03c-79220c3c8622','meter','7c656cd1d11a690887d100e3aa013603','2.1',1798617600000000,'valid');
INSERT INTO run_instrument VALUES('01a1fee6-af53-7c24-bac4-0962700aeee7','meter','7c656cd1d11a690887d100e3aa013603','2.1',1798617600000000,'valid');
INSERT INTO run_instrument VALUES('01a1fee6-af5c-75db-8b66-de10f6e625bc','meter','7c656cd1d11a690887d100e3aa013603','2.1',1798617600000000,'valid');
INSERT INTO run_instrument VALUES('01a1fee6-af6c-770e-8442-6f33c222a9f6','meter','7c656cd1d11a690887d100e3aa013603','2.1',1798617600000000,'valid');
CREATE TABLE event (
  station_id text NOT NULL REFERENCES station (id),
  sequence bigint NOT NULL,
  at_us bigint NOT NULL,
  kind text NOT NULL,
  site text,
  run_id text,
  who text,
  text text,
  PRIMARY KEY (station_id, sequence)
);
INSERT INTO event VALUES('169cd3463ff52dc997181465800e5ce9',1,1795161600000000,'override','left',NULL,'Ada','calibration of meter: certificate on its way');
CREATE TABLE session (
  id text PRIMARY KEY,
  station_id text NOT NULL REFERENCES station (id),
  boot_id text NOT NULL,
  pid bigint NOT NULL,
  process_started bigint NOT NULL,
  opened_us bigint NOT NULL,
  closed_us bigint
);
INSERT INTO session VALUES('01a1fee6-ae35-7cc0-8768-643af5974a27','169cd3463ff52dc997181465800e5ce9','a112d1df-eae8-4eae-822d-bba096d0f284',28737,1447274,1795277893245661,1795277893494296);
INSERT INTO session VALUES('01a1fee6-af84-7614-802a-aaea39278507','169cd3463ff52dc997181465800e5ce9','a112d1df-eae8-4eae-822d-bba096d0f284',28737,1447274,1795277893509249,1795277893520371);
CREATE TABLE running (
  run_id text PRIMARY KEY REFERENCES run (id),
  session_id text NOT NULL REFERENCES session (id)
);
CREATE INDEX run_by_start ON run (started_us);
CREATE INDEX run_by_serial ON run (serial);
CREATE INDEX run_by_plan ON run (plan_id, started_us);
CREATE INDEX run_unfinished ON run (started_us)
  WHERE verdict IN ('RUNNING', 'INCOMPLETE');
CREATE INDEX measurement_by_spec ON measurement (spec_id);
COMMIT;
