#pragma once

/* The parameters a screen-cast stream negotiates with its producer, as SPA PODs. SPA's POD
 * builder is a set of C macros (compound literals, variadic lists) that pedantic C++ rejects,
 * so the PODs are built in C behind this header, which C++ includes. */

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

struct spa_pod;

/* How many parameters brimble_pipewire_buffer_params writes at most. */
#define BRIMBLE_PIPEWIRE_BUFFER_PARAMS 4

/* The largest cursor bitmap asked for, in pixels each way. */
#define BRIMBLE_PIPEWIRE_MAX_CURSOR 1024

/* The formats the stream takes: raw video, BGRx or BGRA preferred, RGBx or RGBA accepted, any
 * size and any rate. Written into `buffer` (`size` bytes); NULL when it does not fit. */
const struct spa_pod* brimble_pipewire_video_formats(uint8_t* buffer, uint32_t size);

/* What the stream asks of buffers once a format is agreed: plain memory (MemPtr or MemFd, as
 * there is no GPU to import DMA-BUFs into), and the header, video-crop and cursor metadata.
 * Written into `buffer` (`size` bytes), with a pointer to each in `params` (room for
 * BRIMBLE_PIPEWIRE_BUFFER_PARAMS); returns how many, 0 when they do not fit. */
uint32_t brimble_pipewire_buffer_params(uint8_t* buffer, uint32_t size,
                                        const struct spa_pod** params);

/* A raw video format the producer chose. */
struct brimble_pipewire_video_format {
  uint32_t format; /* enum spa_video_format */
  uint32_t width;
  uint32_t height;
};

/* Reads `param` (a SPA_PARAM_Format object) into `out`. 0 for raw video, a negative errno
 * otherwise. */
int brimble_pipewire_parse_video_format(const struct spa_pod* param,
                                        struct brimble_pipewire_video_format* out);

#ifdef __cplusplus
}
#endif
