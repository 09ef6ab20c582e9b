-- The policy database tables that the URL list queries read: named URL
-- lists, file-name lists and custom categories. Values compare byte-wise
-- (COLLATE "C"), so each query's ORDER BY walks its index.
-- Load with: psql -v ON_ERROR_STOP=1 -f policy_schema.sql

CREATE TABLE tb_url_list (
  list_id integer PRIMARY KEY,
  list_name text NOT NULL
);
CREATE TABLE tb_url_list_entry (
  list_id integer NOT NULL REFERENCES tb_url_list ON DELETE CASCADE,
  url text COLLATE "C" NOT NULL
);
CREATE INDEX tb_url_list_entry_list ON tb_url_list_entry (list_id, url);

CREATE TABLE tb_file_list (
  list_id integer PRIMARY KEY,
  list_name text NOT NULL
);
CREATE TABLE tb_file_list_entry (
  list_id integer NOT NULL REFERENCES tb_file_list ON DELETE CASCADE,
  file_name text COLLATE "C" NOT NULL
);
CREATE INDEX tb_file_list_entry_list ON tb_file_list_entry (list_id, file_name);

CREATE TABLE tb_custom_category (
  list_id integer PRIMARY KEY,
  category_name text NOT NULL
);
CREATE TABLE tb_custom_category_url (
  list_id integer NOT NULL REFERENCES tb_custom_category ON DELETE CASCADE,
  url text COLLATE "C" NOT NULL
);
CREATE INDEX tb_custom_category_url_list ON tb_custom_category_url (list_id, url);
