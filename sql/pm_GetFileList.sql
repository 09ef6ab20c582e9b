-- The entries of one file-name list (its parameter: the list identifier), in order.
SELECT file_name AS FileName FROM tb_file_list_entry WHERE list_id = $1 ORDER BY file_name
