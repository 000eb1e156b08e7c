#pragma once

/* Marks a declaration as part of the SDK's public binary interface. The libraries are built
   with hidden visibility, so anything a host links against carries this mark; everything
   else stays internal and can change between releases without breaking a host. Plain C
   comments: the C header includes this file too. */
#if defined(TOVANI_STATIC_DEFINE)
#define TOVANI_EXPORT
#elif defined(__GNUC__) || defined(__clang__)
#define TOVANI_EXPORT __attribute__((visibility("default")))
#else
#define TOVANI_EXPORT
#endif
