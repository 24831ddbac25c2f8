/* Makes the six thumbnails with libvips in one process: one decode at a reduced size, then five
 * from the first one in memory. The sharpening is the same unsharp mask, as one 3x3 convolution.
 *
 *   vips_six [PHOTO PREFIX]...      writes PREFIX_XL.jpg, PREFIX_B.jpg, ...
 */
#include <stdio.h>
#include <vips/vips.h>

struct Kind {
  const char *name;
  int side;
  gboolean fill;
  gboolean sharpen;
};

/* As in config/thumb.conf. The others are made from the first one. */
static const struct Kind kinds[] = {
    {"XL", 1280, TRUE, FALSE}, {"L", 800, TRUE, FALSE},  {"B", 640, FALSE, TRUE},
    {"M", 320, TRUE, TRUE},    {"SM", 240, TRUE, TRUE}, {"S", 120, FALSE, TRUE},
};

/* libvips only fits images inside a box. To fill the box, the longer side is left open. */
static void BoxOf(const struct Kind *kind, int width, int height, int *box_width, int *box_height) {
  *box_width = kind->fill && width > height ? VIPS_MAX_COORD : kind->side;
  *box_height = kind->fill && width <= height ? VIPS_MAX_COORD : kind->side;
}

static int Save(VipsImage *image, const char *prefix, const struct Kind *kind) {
  char path[4096];
  vips_snprintf(path, sizeof path, "%s_%s.jpg", prefix, kind->name);
  if (!kind->sharpen) return vips_jpegsave(image, path, "Q", 90, "strip", TRUE, NULL);

  VipsImage *mask = vips_image_new_matrixv(3, 3, -3.0, -13.0, -3.0, -13.0, 164.0, -13.0, -3.0,
                                           -13.0, -3.0);
  vips_image_set_double(mask, "scale", 100);
  VipsImage *sharp = NULL;
  int failed = vips_conv(image, &sharp, mask, "precision", VIPS_PRECISION_INTEGER, NULL) ||
               vips_jpegsave(sharp, path, "Q", 90, "strip", TRUE, NULL);
  g_object_unref(mask);
  if (sharp != NULL) g_object_unref(sharp);
  return failed;
}

/* The first thumbnail, in memory. */
static VipsImage *MakeFirst(const char *photo) {
  VipsImage *header = vips_image_new_from_file(photo, "access", VIPS_ACCESS_SEQUENTIAL, NULL);
  if (header == NULL) return NULL;
  const gboolean rotated = vips_image_get_orientation(header) >= 5;
  const int width = rotated ? header->Ysize : header->Xsize;
  const int height = rotated ? header->Xsize : header->Ysize;
  g_object_unref(header);

  int box_width;
  int box_height;
  BoxOf(&kinds[0], width, height, &box_width, &box_height);
  VipsImage *thumbnail = NULL;
  if (vips_thumbnail(photo, &thumbnail, box_width, "height", box_height, "size", VIPS_SIZE_DOWN,
                     NULL)) {
    return NULL;
  }
  VipsImage *memory = vips_image_copy_memory(thumbnail);
  g_object_unref(thumbnail);
  return memory;
}

static int MakeThumbnails(const char *photo, const char *prefix) {
  VipsImage *first = MakeFirst(photo);
  if (first == NULL) return 1;
  int failed = Save(first, prefix, &kinds[0]);
  for (size_t i = 1; i < G_N_ELEMENTS(kinds) && !failed; ++i) {
    int box_width;
    int box_height;
    BoxOf(&kinds[i], first->Xsize, first->Ysize, &box_width, &box_height);
    VipsImage *thumbnail = NULL;
    failed = vips_thumbnail_image(first, &thumbnail, box_width, "height", box_height, "size",
                                  VIPS_SIZE_DOWN, NULL) ||
             Save(thumbnail, prefix, &kinds[i]);
    if (thumbnail != NULL) g_object_unref(thumbnail);
  }
  g_object_unref(first);
  return failed;
}

int main(int argc, char **argv) {
  if (VIPS_INIT(argv[0])) vips_error_exit(NULL);
  for (int i = 1; i + 1 < argc; i += 2) {
    if (MakeThumbnails(argv[i], argv[i + 1])) vips_error_exit("%s", argv[i]);
  }
  vips_shutdown();
  return 0;
}
