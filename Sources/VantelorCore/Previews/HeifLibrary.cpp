#include "Previews/HeifLibrary.h"

#include <dlfcn.h>

namespace vantelor {

namespace {

template <typename Function>
bool resolve(void* handle, const char* name, Function& into)
{
    into = reinterpret_cast<Function>(dlsym(handle, name));
    return into != nullptr;
}

const HeifLibrary* load()
{
    void* handle = dlopen("libheif.so.1", RTLD_NOW | RTLD_LOCAL);
    if (!handle)
        return nullptr;
    static HeifLibrary library;
    const bool complete =
        resolve(handle, "heif_context_alloc", library.context_alloc)
        && resolve(handle, "heif_context_free", library.context_free)
        && resolve(handle, "heif_context_set_maximum_image_size_limit", library.context_set_maximum_image_size_limit)
        && resolve(handle, "heif_context_read_from_memory_without_copy", library.context_read_from_memory_without_copy)
        && resolve(handle, "heif_context_get_primary_image_handle", library.context_get_primary_image_handle)
        && resolve(handle, "heif_image_handle_release", library.image_handle_release)
        && resolve(handle, "heif_image_handle_get_width", library.image_handle_get_width)
        && resolve(handle, "heif_image_handle_get_height", library.image_handle_get_height)
        && resolve(handle, "heif_image_handle_has_alpha_channel", library.image_handle_has_alpha_channel)
        && resolve(handle, "heif_image_handle_get_number_of_thumbnails", library.image_handle_get_number_of_thumbnails)
        && resolve(handle, "heif_image_handle_get_list_of_thumbnail_IDs", library.image_handle_get_list_of_thumbnail_IDs)
        && resolve(handle, "heif_image_handle_get_thumbnail", library.image_handle_get_thumbnail)
        && resolve(handle, "heif_decode_image", library.decode_image)
        && resolve(handle, "heif_image_release", library.image_release)
        && resolve(handle, "heif_image_get_width", library.image_get_width)
        && resolve(handle, "heif_image_get_height", library.image_get_height)
        && resolve(handle, "heif_image_get_plane_readonly", library.image_get_plane_readonly);
    // The handle stays open for the life of the process: decoded images may still point into it.
    return complete ? &library : nullptr;
}

} // namespace

const HeifLibrary* HeifLibrary::get()
{
    static const HeifLibrary* library = load();
    return library;
}

} // namespace vantelor
