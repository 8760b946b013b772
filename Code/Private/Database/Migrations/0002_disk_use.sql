-- What the files of parts take is a sum over this index alone: the condition is that of the sum, so that no part has to be
-- looked at.

CREATE INDEX event_content_parts_by_disk_use ON event_content_parts (transfer_status, size)
    WHERE file_path IS NOT NULL AND size IS NOT NULL AND (purged = 0 OR purged IS NULL);
