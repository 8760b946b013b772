-- The event store.
--
-- Row identifiers of events and streams are never reused (AUTOINCREMENT): deleting an event leaves its content parts,
-- metadata and change records behind, and a new event must not inherit them.

CREATE TABLE streams (
    database_identifier INTEGER PRIMARY KEY AUTOINCREMENT,
    stream_id BLOB,
    seq INTEGER
);

CREATE UNIQUE INDEX streams_by_stream_id ON streams (stream_id);

CREATE TABLE events (
    database_identifier INTEGER PRIMARY KEY AUTOINCREMENT,
    type INTEGER NOT NULL,
    creator_id TEXT,
    seq INTEGER,
    timestamp INTEGER,
    preceding_seq INTEGER,
    client_seq INTEGER,
    subtype INTEGER,
    member_id TEXT,
    target_seq INTEGER,
    stream_database_identifier INTEGER,
    client_id BLOB NOT NULL,
    creator_name TEXT
);

-- One event at a sequence of a stream. Events without a sequence never collide: NULLs are distinct.
CREATE UNIQUE INDEX events_by_stream_and_seq ON events (stream_database_identifier, seq);

-- The few events that the service has not sequenced, among many that it has.
CREATE INDEX events_without_seq ON events (stream_database_identifier) WHERE seq IS NULL;

CREATE INDEX events_by_client_id ON events (client_id);

CREATE TABLE event_content_parts (
    database_identifier INTEGER PRIMARY KEY,
    event_content_part_id INTEGER NOT NULL,
    event_database_identifier INTEGER NOT NULL,
    type TEXT,
    value BLOB,
    access_expiration REAL,
    url TEXT,
    size INTEGER,
    transfer_status INTEGER,
    file_path TEXT,
    last_accessed REAL,
    purged INTEGER
);

CREATE UNIQUE INDEX event_content_parts_by_event_and_index
    ON event_content_parts (event_database_identifier, event_content_part_id);

CREATE INDEX event_content_parts_by_url ON event_content_parts (url) WHERE url IS NOT NULL;

-- Not a partial index: the download queue asks by three alternatives, and each must find this index.
CREATE INDEX event_content_parts_by_transfer_status ON event_content_parts (transfer_status);

-- The parts that can be purged, oldest access first.
CREATE INDEX event_content_parts_by_last_accessed ON event_content_parts (last_accessed)
    WHERE file_path IS NOT NULL AND last_accessed IS NOT NULL AND (purged = 0 OR purged IS NULL);

CREATE TABLE synced_changes (
    database_identifier INTEGER PRIMARY KEY,
    table_name TEXT NOT NULL,
    row_identifier INTEGER NOT NULL,
    change_type INTEGER NOT NULL
);

CREATE INDEX synced_changes_by_row ON synced_changes (table_name, row_identifier);

CREATE TABLE conversations (
    database_identifier INTEGER PRIMARY KEY AUTOINCREMENT,
    stream_id BLOB
);

CREATE INDEX conversations_by_stream_id ON conversations (stream_id);

CREATE TABLE conversation_participants (
    database_identifier INTEGER PRIMARY KEY,
    conversation_database_identifier INTEGER NOT NULL,
    member_id TEXT NOT NULL,
    seq INTEGER
);

CREATE UNIQUE INDEX conversation_participants_by_member
    ON conversation_participants (conversation_database_identifier, member_id);

CREATE TABLE messages (
    database_identifier INTEGER PRIMARY KEY AUTOINCREMENT,
    event_database_identifier INTEGER,
    seq INTEGER
);

CREATE INDEX messages_by_event ON messages (event_database_identifier);

-- Keyed values: what an object carries beside its row. A value has no declared type: text stays text, bytes stay bytes.
CREATE TABLE keyed_values_local (
    object_database_identifier INTEGER NOT NULL,
    object_type TEXT NOT NULL,
    key_type INTEGER NOT NULL,
    key TEXT NOT NULL,
    value,
    timestamp REAL,
    PRIMARY KEY (object_database_identifier, object_type, key_type, key)
) WITHOUT ROWID;

CREATE TABLE keyed_values_remote (
    object_database_identifier INTEGER NOT NULL,
    object_type TEXT NOT NULL,
    key_type INTEGER NOT NULL,
    key TEXT NOT NULL,
    value,
    timestamp REAL,
    PRIMARY KEY (object_database_identifier, object_type, key_type, key)
) WITHOUT ROWID;
