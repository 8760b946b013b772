-- The list of conversations is in the order of their last events. It is asked for a page at a time, and to look for the last
-- event of each stream takes longer than a page may. A row here may be older than the stream's events: who reads it looks at
-- events of later rows as well.

CREATE TABLE stream_recency (
    stream_database_identifier INTEGER PRIMARY KEY,
    timestamp INTEGER NOT NULL
);

CREATE INDEX stream_recency_by_timestamp ON stream_recency (timestamp, stream_database_identifier);
