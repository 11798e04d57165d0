-- One row for each record. Fields of a record that have no column here are left out.
create table if not exists records
(
    time             String,
    received         DateTime materialized parseDateTimeBestEffort(time),
    day              Date materialized toDate(received),
    transport        String,
    kind             String,
    level            UInt8,
    log_type         String,
    message          String,
    user_id          String,
    software_id      String,
    software_version String
)
engine = MergeTree
partition by toYYYYMM(day)
order by (software_id, software_version, level, received)
