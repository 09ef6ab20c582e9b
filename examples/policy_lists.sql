-- Example policy database content for the main job: one URL list whose
-- rules the matcher loads with `bexo url load-db --list 1001 --type 1`.
INSERT INTO tb_url_list VALUES (1001, 'Reference sites');
INSERT INTO tb_url_list_entry VALUES
  (1001, 'en.wikipedia.org/wiki/*'),
  (1001, 'docs.python.org/*'),
  (1001, 'docs.python.org/*'),   -- a repeated row is added once
  (1001, 'news.example.com/weather');
