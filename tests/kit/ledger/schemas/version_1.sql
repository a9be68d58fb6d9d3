-- A history of version 1, as the program of that version made it, with one run. Never changed.
BEGIN;
CREATE TABLE runs(
  id INTEGER PRIMARY KEY AUTOINCREMENT,
  identity TEXT NOT NULL UNIQUE,
  content TEXT NOT NULL,
  path TEXT NOT NULL,
  side TEXT NOT NULL,
  board TEXT NOT NULL,
  model TEXT NOT NULL,
  modelXxh3 TEXT NOT NULL,
  configuration TEXT NOT NULL,
  configurationXxh3 TEXT NOT NULL,
  list TEXT NOT NULL,
  listXxh3 TEXT NOT NULL,
  options TEXT NOT NULL,
  runtime TEXT NOT NULL,
  runtimeXxh3 TEXT NOT NULL,
  mapped TEXT NOT NULL,
  program TEXT NOT NULL,
  programXxh3 TEXT NOT NULL,
  tool TEXT NOT NULL,
  fleet TEXT NOT NULL,
  kernel TEXT NOT NULL,
  processor TEXT NOT NULL,
  cores INTEGER,
  governor TEXT NOT NULL,
  container TEXT NOT NULL,
  loadAverage REAL,
  frequencyKhz INTEGER,
  temperatureMilliC INTEGER,
  state TEXT NOT NULL,
  status INTEGER,
  signal TEXT NOT NULL,
  startRealtimeNs INTEGER NOT NULL,
  endRealtimeNs INTEGER,
  inferences INTEGER NOT NULL,
  done INTEGER NOT NULL,
  failed INTEGER NOT NULL,
  aside INTEGER NOT NULL,
  missing INTEGER NOT NULL,
  executions INTEGER NOT NULL,
  firstNs REAL,
  medianNs REAL,
  madNs REAL,
  verdict TEXT NOT NULL,
  addedRealtimeNs INTEGER NOT NULL
) STRICT;
CREATE INDEX runsByStart ON runs(startRealtimeNs, id);
CREATE TABLE metrics(
  run INTEGER NOT NULL REFERENCES runs(id) ON DELETE CASCADE,
  output TEXT NOT NULL,
  metric TEXT NOT NULL,
  value REAL NOT NULL,
  expected REAL,
  PRIMARY KEY(run, output, metric)
) STRICT, WITHOUT ROWID;
CREATE TABLE times(
  run INTEGER PRIMARY KEY REFERENCES runs(id) ON DELETE CASCADE,
  first BLOB NOT NULL,
  later BLOB NOT NULL,
  leftOut INTEGER NOT NULL
) STRICT;
INSERT INTO runs VALUES(3,'0123456789abcdef0123456789abcdef','cccccccccccccccccccccccccccccccc','/runs/first','','board7','digits.onnx','11111111111111111111111111111111','device.json','22222222222222222222222222222222','list.txt','33333333333333333333333333333333','-b 2','libvorn.so','44444444444444444444444444444444','libvorn.so	0a1b2c3d4e5f
','vorn-run','55555555555555555555555555555555','0.1.0','','5.10','ARMv8',4,'performance','',NULL,1500000,48000,'done',0,'',1793491200000000000,1793491260000000000,2,2,0,0,0,2,7.0,1250000.5,0.5,'right',1793491300000000000);
INSERT INTO metrics VALUES(3,'probabilities','top 1',0.97,0.98);
INSERT INTO times VALUES(3,X'07',X'05AC02',0);
PRAGMA application_id = 1987015278;
PRAGMA user_version = 1;
COMMIT;
