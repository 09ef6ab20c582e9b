-- The report database: one table per report file family, one column per
-- field of the record layout, in field order, so that a rolled report file
-- loads with \copy. Dates are the writers' "%Y-%m-%d %H:%M:%S%z".
-- Load with: psql -v ON_ERROR_STOP=1 -f report_schema.sql

-- Access records (".access." files): 20 fields.
CREATE TABLE tb_url_usage (
  user_name text, url text, size_bytes bigint, log_date timestamptz, protocol text,
  mime_type text, server text, client_ip text, server_ip text, domain text,
  path text, file_name text, operation text, user_id text, category integer,
  category_type integer, elapsed_seconds integer, elapsed_ms integer,
  category_names text, extra text
);

-- Virus, blocking, bot, DLP records (".violation.", ".polevtkrau." files).
-- Fields 1-15 are shared. The short layout has 16 fields, its 16th the
-- filter action; the layout with access information has 24, its 16th the
-- size in bytes. Short lines load with columns 17-24 NULL.
CREATE TABLE tb_violation (
  user_name text, log_date timestamptz, protocol text, url text,
  malicious_entity text, file_name text, entity_name text, action text,
  scan_type text, blocked_by text, rule_name text, rule_id integer,
  group_name text, category text, user_id text,
  filter_action_or_size bigint,
  info_text1 text, info_text2 text, info_text3 text, info_domain text, info_text5 text,
  info_number1 integer, info_number2 integer, info_number3 integer
);

-- Performance metrics (".performance." files).
CREATE TABLE tb_performance_value (
  server text, log_date timestamptz, metric_id text, metric_value text
);

-- Cleanup service actions (".cleanup." files).
CREATE TABLE tb_cleanup (
  user_id text, host_name text, log_date timestamptz, entity_name text,
  entity_type text, entity_subtype text, function_code text
);

-- System events (".systemevent." files).
CREATE TABLE tb_sys_event_log (
  server text, log_date timestamptz, event_level integer, source text, description text
);

-- Application control statistics (".app." files).
CREATE TABLE tb_app_control_statistic (
  user_name text, log_date timestamptz, text2 text, text3 text,
  number1 integer, number2 integer, unsigned1 bigint, unsigned2 bigint,
  counter1 bigint, counter2 bigint, event_date timestamptz, last_text text
);

-- Application control dashboard (".apparmdashboard." files).
CREATE TABLE tb_app_control_dashboard (
  log_date timestamptz, application_id integer, first_value bigint, second_value numeric(20)
);

-- Contact alerts (".rkdx." files).
CREATE TABLE tb_rkdx_log (
  user_name text, log_date timestamptz, protocol text, url text, domain text,
  device_name text, rule_name text, group_name text, client_ip text, server_ip text,
  destination_port integer, alert_source integer, risk_level integer, user_id text,
  filter_action integer
);

-- The report tables and their file families; the connection check reads it.
CREATE TABLE tb_list (
  table_name text PRIMARY KEY,
  file_marker text NOT NULL
);
INSERT INTO tb_list VALUES
  ('tb_url_usage', '.access.'),
  ('tb_violation', '.violation.'),
  ('tb_performance_value', '.performance.'),
  ('tb_cleanup', '.cleanup.'),
  ('tb_sys_event_log', '.systemevent.'),
  ('tb_app_control_statistic', '.app.'),
  ('tb_app_control_dashboard', '.apparmdashboard.'),
  ('tb_rkdx_log', '.rkdx.');
