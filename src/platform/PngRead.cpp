#include "PngRead.h"

#include <csetjmp>
#include <cstring>

namespace corvina {

namespace {

[[noreturn]] void quietError(png_structp png, png_const_charp) {
    png_longjmp(png, 1);
}

void quietWarning(png_structp, png_const_charp) {}

// The two steps that libpng may abandon by a long jump. They own no C++ object, so that a jump
// skips no destructor: the caller holds the image and the row pointers.
bool readHeader(png_structp png, png_infop info, png_uint_32* width, png_uint_32* height) {
    if (setjmp(png_jmpbuf(png))) {
        return false;
    }
    png_read_info(png, info);
    *width = png_get_image_width(png, info);
    *height = png_get_image_height(png, info);
    return true;
}

bool readPixels(png_structp png, png_infop info, png_uint_32 width, png_bytep* rows) {
    if (setjmp(png_jmpbuf(png))) {
        return false;
    }
    // whatever the stored form, 8-bit RGBA comes out
    png_set_expand(png);
    png_set_strip_16(png);
    png_set_gray_to_rgb(png);
    png_set_add_alpha(png, 0xFF, PNG_FILLER_AFTER);
    png_set_interlace_handling(png);
    png_read_update_info(png, info);
    if (png_get_rowbytes(png, info) != png_size_t(width) * 4) {
        return false;
    }
    png_read_image(png, rows);
    png_read_end(png, nullptr);
    return true;
}

} // namespace

PngRead::PngRead(const QByteArray& bytes) : m_source{&bytes} {
    m_png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, quietError, quietWarning);
    m_info = m_png ? png_create_info_struct(m_png) : nullptr;
    if (m_info) {
        png_set_read_fn(m_png, &m_source, [](png_structp png, png_bytep out, png_size_t length) {
            auto* source = static_cast<Source*>(png_get_io_ptr(png));
            const qsizetype left = source->bytes->size() - source->position;
            if (length > static_cast<png_size_t>(left)) {
                png_error(png, "truncated");
            }
            std::memcpy(out, source->bytes->constData() + source->position, length);
            source->position += static_cast<qsizetype>(length);
        });
        // ancillary chunks (texts, colour profiles) are not what a picture of a sender needs
        png_set_chunk_malloc_max(m_png, 1024 * 1024);
    }
}

PngRead::~PngRead() {
    png_destroy_read_struct(&m_png, &m_info, nullptr);
}

bool PngRead::header(png_uint_32* width, png_uint_32* height) {
    return readHeader(m_png, m_info, width, height);
}

bool PngRead::pixels(png_uint_32 width, png_bytep* rows) {
    return readPixels(m_png, m_info, width, rows);
}

} // namespace corvina
