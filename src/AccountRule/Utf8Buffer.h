#pragma once

#include <QStringView>
#include <QVarLengthArray>

// The UTF-8 bytes of a text in a stack buffer (heap only for long texts), NUL-terminated, for
// the dial path where every allocation counts. Same bytes as QString::toUtf8(), including its
// "?" for a lone surrogate.
class Utf8Buffer
{
public:
    explicit Utf8Buffer(QStringView text)
    {
        _bytes.resize(text.size() * 3 + 1);
        char *out = _bytes.data();
        const char16_t *p = text.utf16();
        const char16_t *const end = p + text.size();
        while (p < end) {
            char32_t c = *p++;
            if (c < 0x80) {
                *out++ = static_cast<char>(c);
                continue;
            }
            if (c < 0x800) {
                *out++ = static_cast<char>(0xC0 | (c >> 6));
                *out++ = static_cast<char>(0x80 | (c & 0x3F));
                continue;
            }
            if (c >= 0xD800 && c <= 0xDFFF) {
                if (c <= 0xDBFF && p < end && *p >= 0xDC00 && *p <= 0xDFFF) {
                    c = 0x10000 + ((c - 0xD800) << 10) + (*p++ - 0xDC00);
                    *out++ = static_cast<char>(0xF0 | (c >> 18));
                    *out++ = static_cast<char>(0x80 | ((c >> 12) & 0x3F));
                    *out++ = static_cast<char>(0x80 | ((c >> 6) & 0x3F));
                    *out++ = static_cast<char>(0x80 | (c & 0x3F));
                } else {
                    *out++ = '?';
                }
                continue;
            }
            *out++ = static_cast<char>(0xE0 | (c >> 12));
            *out++ = static_cast<char>(0x80 | ((c >> 6) & 0x3F));
            *out++ = static_cast<char>(0x80 | (c & 0x3F));
        }
        _size = out - _bytes.data();
        *out = '\0';
    }

    Utf8Buffer(const Utf8Buffer &) = delete;
    Utf8Buffer &operator=(const Utf8Buffer &) = delete;

    char *data() { return _bytes.data(); }
    const char *data() const { return _bytes.data(); }
    qsizetype size() const { return _size; }
    // The length as a C string: up to the first NUL.
    qsizetype cLength() const
    {
        for (qsizetype i = 0; i < _size; ++i)
            if (_bytes[i] == '\0')
                return i;
        return _size;
    }

private:
    QVarLengthArray<char, 192> _bytes;
    qsizetype _size = 0;
};
