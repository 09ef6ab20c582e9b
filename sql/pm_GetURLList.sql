-- The entries of one URL list (its parameter: the list identifier), in order, so that
-- duplicates are adjacent.
SELECT url FROM tb_url_list_entry WHERE list_id = $1 ORDER BY url
