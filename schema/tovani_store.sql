-- The ad store as the ad server ships it ("tnad_005.data"). The SDK never creates or
-- alters these tables; it only reads and writes rows.
CREATE TABLE IF NOT EXISTS tn_adverts (
  ads_no TEXT,
  slot TEXT,
  url TEXT,
  start TEXT,
  end TEXT,
  policy_campaign TEXT,
  policy_product TEXT,
  sources_code TEXT,
  sources_start TEXT,
  sources_end TEXT,
  sources_value TEXT,
  sources_policy_duration TEXT,
  sources_policy_width TEXT,
  sources_policy_height TEXT,
  sources_policy_mimetype TEXT,
  sources_policy_clicktype TEXT,
  imp_url TEXT,
  click_url TEXT,
  ext_url TEXT,
  skip_url TEXT,
  end_url TEXT,
  mid_url TEXT,
  video_filename TEXT,
  use_flag INTEGER DEFAULT 0
);
-- One row per started showing; reg_date is filled by the engine (UTC, a text that
-- strftime reads), since the SDK's insert names only ads_no.
CREATE TABLE IF NOT EXISTS tn_ads_freq (
  ads_no TEXT,
  reg_date TEXT DEFAULT (datetime('now'))
);
-- The device identity issued by the server; uuid must stay the first column.
CREATE TABLE IF NOT EXISTS tn_device (
  uuid TEXT,
  mcc TEXT,
  mnc TEXT
);
