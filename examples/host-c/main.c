/* A plain C host: links libtovani-linux through pkg-config, shows one ad and exits 0 when
   the result is the expected one.

     cc -std=c89 main.c $(pkg-config --cflags --libs tovani-linux)

   Where the ad server is comes from the environment, as a test or a developer sets it:
   TOVANI_HOST_MAPPINGS ("host:port:address:port" entries separated by ';'), TOVANI_CA_FILE,
   TOVANI_DOCUMENTS (the app's documents folder) and TOVANI_EXPECT (default 0, rewarded). */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <tovani/tovani.h>

static int last_result = -1;

static void on_result(int result, void* user_data) {
  *(int*)user_data = result;
  tovani_linux_quit();
}

static void add_mappings(tovani_linux_options* options, const char* list) {
  char entry[512];
  while (list && *list) {
    const char* end = strchr(list, ';');
    size_t length = end ? (size_t)(end - list) : strlen(list);
    if (length > 0 && length < sizeof entry) {
      memcpy(entry, list, length);
      entry[length] = '\0';
      tovani_linux_options_add_host_mapping(options, entry);
    }
    list = end ? end + 1 : NULL;
  }
}

int main(void) {
  static const char* const categories[] = {"0105", "03"};
  const char* expect_text = getenv("TOVANI_EXPECT");
  const int expected = expect_text ? atoi(expect_text) : TOVANI_RESULT_REWARDED;
  tovani_linux_options* options = tovani_linux_options_create();
  tovani_view* root;
  int attempt;

  add_mappings(options, getenv("TOVANI_HOST_MAPPINGS"));
  if (getenv("TOVANI_CA_FILE")) tovani_linux_options_set_ca_file(options, getenv("TOVANI_CA_FILE"));
  if (getenv("TOVANI_DOCUMENTS"))
    tovani_linux_options_set_documents_dir(options, getenv("TOVANI_DOCUMENTS"));
  tovani_linux_options_set_playback_rate(options, 8.0);
  tovani_linux_options_set_always_online(options, 1);
  if (tovani_linux_attach(options) != 0) return 2;
  tovani_linux_options_release(options);

  printf("tovani %s\n", tovani_version());
  tovani_init_with_categories("DEMO_MEDIA", "DEMO_SLOT", categories, 2);
  tovani_set_callback(on_result, &last_result);
  root = tovani_view_create(375, 667);

  /* A cold start downloads the ad list and the videos first; until one is cached every
     showing answers "no ad", so ask again a little later. */
  for (attempt = 0; attempt < 60; ++attempt) {
    last_result = -1;
    tovani_show(root);
    if (tovani_linux_run(90.0) != 1) break;
    printf("attempt %d: result %d\n", attempt + 1, last_result);
    if (last_result != TOVANI_RESULT_NO_AD) break;
    tovani_linux_run(0.5);
  }
  tovani_view_release(root);
  printf("result %d, expected %d\n", last_result, expected);
  return last_result == expected ? 0 : 1;
}
