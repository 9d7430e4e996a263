#include "BrimbleCore/Platform/Wayland/PipeWireParams.h"

#include <errno.h>
#include <spa/buffer/buffer.h>
#include <spa/buffer/meta.h>
#include <spa/param/buffers.h>
#include <spa/param/format-utils.h>
#include <spa/param/video/format-utils.h>
#include <spa/pod/builder.h>

/* Room for the cursor, its bitmap header and `side` x `side` pixels of four bytes. */
static int32_t cursor_meta_size(int32_t side) {
  return (int32_t)(sizeof(struct spa_meta_cursor) + sizeof(struct spa_meta_bitmap)) +
         side * side * 4;
}

const struct spa_pod* brimble_pipewire_video_formats(uint8_t* buffer, uint32_t size) {
  struct spa_pod_builder builder = SPA_POD_BUILDER_INIT(buffer, size);
  const struct spa_rectangle default_size = SPA_RECTANGLE(1920, 1080);
  const struct spa_rectangle min_size = SPA_RECTANGLE(1, 1);
  const struct spa_rectangle max_size = SPA_RECTANGLE(16384, 16384);
  /* A compositor sends a frame only when the screen changes (a rate of 0/1, variable). */
  const struct spa_fraction default_rate = SPA_FRACTION(0, 1);
  const struct spa_fraction min_rate = SPA_FRACTION(0, 1);
  const struct spa_fraction max_rate = SPA_FRACTION(1000, 1);
  return spa_pod_builder_add_object(
      &builder, SPA_TYPE_OBJECT_Format, SPA_PARAM_EnumFormat, SPA_FORMAT_mediaType,
      SPA_POD_Id(SPA_MEDIA_TYPE_video), SPA_FORMAT_mediaSubtype, SPA_POD_Id(SPA_MEDIA_SUBTYPE_raw),
      SPA_FORMAT_VIDEO_format,
      SPA_POD_CHOICE_ENUM_Id(5, SPA_VIDEO_FORMAT_BGRx, SPA_VIDEO_FORMAT_BGRx, SPA_VIDEO_FORMAT_BGRA,
                             SPA_VIDEO_FORMAT_RGBx, SPA_VIDEO_FORMAT_RGBA),
      SPA_FORMAT_VIDEO_size, SPA_POD_CHOICE_RANGE_Rectangle(&default_size, &min_size, &max_size),
      SPA_FORMAT_VIDEO_framerate,
      SPA_POD_CHOICE_RANGE_Fraction(&default_rate, &min_rate, &max_rate));
}

uint32_t brimble_pipewire_buffer_params(uint8_t* buffer, uint32_t size,
                                        const struct spa_pod** params) {
  struct spa_pod_builder builder = SPA_POD_BUILDER_INIT(buffer, size);
  uint32_t count = 0;
  /* At least three: the producer fills one while we hold the newest and one more waits. */
  params[count++] = spa_pod_builder_add_object(
      &builder, SPA_TYPE_OBJECT_ParamBuffers, SPA_PARAM_Buffers, SPA_PARAM_BUFFERS_buffers,
      SPA_POD_CHOICE_RANGE_Int(8, 3, 32), SPA_PARAM_BUFFERS_blocks, SPA_POD_Int(1),
      SPA_PARAM_BUFFERS_dataType,
      SPA_POD_CHOICE_FLAGS_Int((1 << SPA_DATA_MemPtr) | (1 << SPA_DATA_MemFd)));
  params[count++] = spa_pod_builder_add_object(
      &builder, SPA_TYPE_OBJECT_ParamMeta, SPA_PARAM_Meta, SPA_PARAM_META_type,
      SPA_POD_Id(SPA_META_Header), SPA_PARAM_META_size,
      SPA_POD_Int((int32_t)sizeof(struct spa_meta_header)));
  params[count++] = spa_pod_builder_add_object(
      &builder, SPA_TYPE_OBJECT_ParamMeta, SPA_PARAM_Meta, SPA_PARAM_META_type,
      SPA_POD_Id(SPA_META_VideoCrop), SPA_PARAM_META_size,
      SPA_POD_Int((int32_t)sizeof(struct spa_meta_region)));
  params[count++] = spa_pod_builder_add_object(
      &builder, SPA_TYPE_OBJECT_ParamMeta, SPA_PARAM_Meta, SPA_PARAM_META_type,
      SPA_POD_Id(SPA_META_Cursor), SPA_PARAM_META_size,
      SPA_POD_CHOICE_RANGE_Int(cursor_meta_size(64), cursor_meta_size(1),
                               cursor_meta_size(BRIMBLE_PIPEWIRE_MAX_CURSOR)));
  for (uint32_t i = 0; i < count; ++i) {
    if (params[i] == NULL) {
      return 0;
    }
  }
  return count;
}

int brimble_pipewire_parse_video_format(const struct spa_pod* param,
                                        struct brimble_pipewire_video_format* out) {
  uint32_t media_type = 0;
  uint32_t media_subtype = 0;
  if (param == NULL || spa_format_parse(param, &media_type, &media_subtype) < 0) {
    return -EINVAL;
  }
  if (media_type != SPA_MEDIA_TYPE_video || media_subtype != SPA_MEDIA_SUBTYPE_raw) {
    return -ENOTSUP;
  }
  struct spa_video_info_raw info = {0};
  const int result = spa_format_video_raw_parse(param, &info);
  if (result < 0) {
    return result;
  }
  out->format = info.format;
  out->width = info.size.width;
  out->height = info.size.height;
  return 0;
}
