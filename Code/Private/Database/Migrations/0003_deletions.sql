-- A deletion may come before what it deletes: whoever stores an event asks whether there is one. Only deletions stand in this
-- index.

CREATE INDEX events_by_deleted_seq ON events (stream_database_identifier, target_seq) WHERE type = 9;
