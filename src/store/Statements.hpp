#pragma once

// Every SQL text the SDK issues, byte for byte, as "%@" templates for formatAt ("%%" is a
// single "%" in the issued statement). Blanks are part of the texts and must stay.
namespace tovani::sql {

// S1: the device identity; each row's first value is the uuid.
inline constexpr const char* kSelectDevice = "select * from tn_device";
// S2: uuid, mcc, mnc.
inline constexpr const char* kInsertDevice =
    "insert into tn_device(uuid, mcc, mnc) values('%@','%@','%@')";
// S3: ads_no, video_filename.
inline constexpr const char* kSelectAdvert =
    "select * from tn_adverts where ads_no ='%@' and video_filename = '%@'";
// S4: the 23 values of columns 1 to 23.
inline constexpr const char* kInsertAdvert =
    "insert into tn_adverts(ads_no, slot, url, start, end, policy_campaign, policy_product, "
    "sources_code, sources_start, sources_end, sources_value, sources_policy_duration, "
    "sources_policy_width, sources_policy_height, sources_policy_mimetype, "
    "sources_policy_clicktype, imp_url, click_url, ext_url, skip_url, end_url, "
    "mid_url,video_filename, use_flag) values('%@', '%@', '%@', '%@', '%@', '%@', '%@', '%@', "
    "'%@', '%@', '%@', '%@', '%@', '%@', '%@', '%@', '%@', '%@', '%@', '%@', '%@', '%@', '%@', "
    "0)";
// S5: the download work list.
inline constexpr const char* kSelectWaitingVideos =
    "select ads_no, sources_value, video_filename, use_flag from tn_adverts where use_flag = 0";
// S6: video_filename.
inline constexpr const char* kMarkVideoCached =
    "update tn_adverts set use_flag = 1 where video_filename = '%@'";
// S7: video_filename.
inline constexpr const char* kMarkVideoMissing =
    "update tn_adverts set use_flag = 0 where video_filename = '%@'";
// S8: ads_no, video_filename.
inline constexpr const char* kSelectPlayableAdvert =
    "select ads_no, sources_value, video_filename, use_flag from tn_adverts where use_flag = 1 "
    "and ads_no ='%@' and video_filename ='%@' group by video_filename limit 1";
// S9: adid, start, end, cap, start, end.
inline constexpr const char* kSelectPeriodCapReached =
    "select * from ( select count(*) as freqcnt, ads_no from tn_ads_freq where ads_no ='%@' and "
    "(strftime('%%Y%%m%%d',reg_date) between '%@' and '%@')   group by ads_no) as t1 where  "
    "freqcnt >= %@ and (strftime('%%Y%%m%%d',date()) between '%@' and '%@')  ";
// S10: adid, days, cap.
inline constexpr const char* kSelectRollingCapReached =
    "select * from ( select count(*) as freqcnt, ads_no from tn_ads_freq where ads_no ='%@' and "
    "(strftime('%%Y%%m%%d',reg_date) >= date('now','-%@ day')) group by ads_no) as t1 where "
    "freqcnt >= %@  ";
// S11: ads_no.
inline constexpr const char* kInsertImpression = "insert into tn_ads_freq(ads_no) values('%@')";

// Our own addition: the names of cached videos, which installs from before the record of
// the SDK's own files count as the SDK's.
inline constexpr const char* kSelectCachedVideoNames =
    "select video_filename from tn_adverts where use_flag = 1";

}  // namespace tovani::sql
