/* The SDK's plain C interface, for C hosts and for other languages' foreign-function
   interfaces. C89; every call belongs on the SDK's main thread (the one that runs the
   platform's main loop). No call aborts or throws: a NULL or otherwise unusable argument is
   reported with one log line and handled as each function says.

   Core entry points live in libtovani (pkg-config tovani); the tovani_linux_* ones in
   libtovani-linux (pkg-config tovani-linux), which also makes the headless Linux adapters
   the SDK's default platform as soon as it is loaded. */
#ifndef TOVANI_TOVANI_H
#define TOVANI_TOVANI_H

#include <stddef.h>

#include "tovani/Export.hpp"

#ifdef __cplusplus
extern "C" {
#endif

/* The result codes of tovani_callback. C++ has the same names as constants in namespace
   tovani (ResultCode.hpp), so C++ sees no second set here. */
#ifndef __cplusplus
enum tovani_result_code {
  TOVANI_RESULT_REWARDED = 0,  /* the ad reached its reward point */
  TOVANI_RESULT_NO_AD = 1,     /* no ad ready to show */
  TOVANI_RESULT_FAILED = 2,    /* failure, or a showing that did not reach its reward point */
  TOVANI_RESULT_LEFT_EARLY = 3 /* the viewer left before the reward point */
};
#endif

/* Receives every result; user_data is what was handed to tovani_set_callback. */
typedef void (*tovani_callback)(int result, void* user_data);

/* A host view the ad is shown over: the root of the host's screen. */
typedef struct tovani_view tovani_view;

/* The SDK's version text, e.g. "1.1.2". Never NULL. */
TOVANI_EXPORT const char* tovani_version(void);

/* Non-zero once any call below has created the SDK. */
TOVANI_EXPORT int tovani_started(void);

/* Non-zero selects the test ad host. Read at start-up only: call it before tovani_init. */
TOVANI_EXPORT void tovani_set_dev_type(int dev_type);

/* Starts the SDK. A NULL or non-UTF-8 code is taken as empty (the codes are not validated;
   the server decides). */
TOVANI_EXPORT void tovani_init(const char* media_code, const char* slot_code);

/* As tovani_init with app-category codes (see TovaniCategory.hpp). A NULL entry or one that
   is not UTF-8 is not a string and is skipped; `categories` may be NULL (no list). */
TOVANI_EXPORT void tovani_init_with_categories(const char* media_code, const char* slot_code,
                                               const char* const* categories, size_t count);

/* Makes `callback` the delegate: it receives every result with `user_data`. A NULL callback
   removes the delegate, so results are dropped. Replaces any earlier callback. */
TOVANI_EXPORT void tovani_set_callback(tovani_callback callback, void* user_data);

/* A plain host view of the given size in points (negative or non-finite sizes count as 0).
   Release it with tovani_view_release; the SDK keeps its own reference while it shows. */
TOVANI_EXPORT tovani_view* tovani_view_create(double width, double height);
TOVANI_EXPORT void tovani_view_release(tovani_view* view);

/* Shows an ad over `host_view` (NULL: played without being attached). Before any other call
   has started the SDK it does nothing and no callback comes. */
TOVANI_EXPORT void tovani_show(tovani_view* host_view);

/* ---- libtovani-linux ------------------------------------------------------------------ */

typedef struct tovani_linux_options tovani_linux_options;

/* Options for tovani_linux_attach; NULL only when out of memory. */
TOVANI_EXPORT tovani_linux_options* tovani_linux_options_create(void);
TOVANI_EXPORT void tovani_linux_options_release(tovani_linux_options* options);
/* Each setter returns 0, or -1 (with a log line) for a NULL or unusable argument. */
/* "host:port:connect-to-host:connect-to-port": requests for host:port go there instead. */
TOVANI_EXPORT int tovani_linux_options_add_host_mapping(tovani_linux_options* options,
                                                        const char* mapping);
/* A PEM bundle trusted instead of the system's certificate store. */
TOVANI_EXPORT int tovani_linux_options_set_ca_file(tovani_linux_options* options, const char* path);
/* The app's documents folder, the only place the SDK writes (made when missing). */
TOVANI_EXPORT int tovani_linux_options_set_documents_dir(tovani_linux_options* options,
                                                         const char* path);
/* Media seconds per wall-clock second (> 0). */
TOVANI_EXPORT int tovani_linux_options_set_playback_rate(tovani_linux_options* options,
                                                         double rate);
/* Non-zero: the network counts as reachable whatever the routing table says. */
TOVANI_EXPORT int tovani_linux_options_set_always_online(tovani_linux_options* options, int online);

/* Builds the Linux platform (NULL options: defaults) on the default GLib main context and
   hands it to the SDK. Returns 0, or -1 when the SDK has already started or a platform was
   attached before. */
TOVANI_EXPORT int tovani_linux_attach(const tovani_linux_options* options);

/* Runs the attached platform's main loop on the calling thread, which thereby is the SDK's
   main thread, until tovani_linux_quit() or for at most timeout_seconds (< 0: no limit).
   Returns 1 when tovani_linux_quit ended it, 0 on time-out, -1 without an attached platform
   or when called from inside the loop. */
TOVANI_EXPORT int tovani_linux_run(double timeout_seconds);

/* Ends tovani_linux_run soon; meant for the callback. Called while no run is going on, it
   makes the next tovani_linux_run return 1 at once. */
TOVANI_EXPORT void tovani_linux_quit(void);

/* Makes the Linux adapters the default platform: what loading libtovani-linux already does,
   for hosts that link it statically. */
TOVANI_EXPORT void tovani_linux_register_default(void);

#ifdef __cplusplus
}
#endif

#endif /* TOVANI_TOVANI_H */
