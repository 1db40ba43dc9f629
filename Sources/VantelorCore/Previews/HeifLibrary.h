#pragma once

#include <libheif/heif.h>

namespace vantelor {

// libheif, loaded on the first HEIC the user opens rather than at start-up. Linking it directly
// would load its codecs (libde265, x265, aom, dav1d) into every run of the app and the CLI, and
// libde265 alone spends several milliseconds building tables when it is loaded: a third of
// vantelor-cli's start-up, for photographers who may never open a HEIC.
struct HeifLibrary {
    decltype(&heif_context_alloc) context_alloc;
    decltype(&heif_context_free) context_free;
    decltype(&heif_context_set_maximum_image_size_limit) context_set_maximum_image_size_limit;
    decltype(&heif_context_read_from_memory_without_copy) context_read_from_memory_without_copy;
    decltype(&heif_context_get_primary_image_handle) context_get_primary_image_handle;
    decltype(&heif_image_handle_release) image_handle_release;
    decltype(&heif_image_handle_get_width) image_handle_get_width;
    decltype(&heif_image_handle_get_height) image_handle_get_height;
    decltype(&heif_image_handle_has_alpha_channel) image_handle_has_alpha_channel;
    decltype(&heif_image_handle_get_number_of_thumbnails) image_handle_get_number_of_thumbnails;
    decltype(&heif_image_handle_get_list_of_thumbnail_IDs) image_handle_get_list_of_thumbnail_IDs;
    decltype(&heif_image_handle_get_thumbnail) image_handle_get_thumbnail;
    decltype(&heif_decode_image) decode_image;
    decltype(&heif_image_release) image_release;
    decltype(&heif_image_get_width) image_get_width;
    decltype(&heif_image_get_height) image_get_height;
    decltype(&heif_image_get_plane_readonly) image_get_plane_readonly;

    // The loaded library, or null when it is not installed (HEIC files are then unreadable).
    // Thread-safe; loads once per process.
    static const HeifLibrary* get();
};

} // namespace vantelor
