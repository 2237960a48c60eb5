#include "QrCodeGenerator.h"

#include "Util/Log.h"

#include <qrencode.h>

#include <cmath>
#include <memory>

std::optional<QrMatrix> QrCodeGenerator::encode(const QString &info)
{
    const QByteArray bytes = info.toUtf8();
    if (bytes.isEmpty()) {
        DVLOG() << "qrcode content is empty";
        return std::nullopt;
    }
    std::unique_ptr<QRcode, decltype(&QRcode_free)> code(
        QRcode_encodeData(static_cast<int>(bytes.size()), reinterpret_cast<const unsigned char *>(bytes.constData()), 0,
                          QR_ECLEVEL_M),
        QRcode_free);
    if (!code) {
        DVLOG() << "qrcode encoding failed, content length " << bytes.size();
        return std::nullopt;
    }
    QrMatrix m;
    m.width = code->width;
    m.modules.resize(static_cast<size_t>(code->width) * static_cast<size_t>(code->width));
    for (size_t i = 0; i < m.modules.size(); ++i)
        m.modules[i] = (code->data[i] & 1) != 0; // bit 0 is the module colour
    return m;
}

QrBitmap QrCodeGenerator::scaleNearest(const QrMatrix &matrix, double size)
{
    QrBitmap out;
    if (matrix.width <= 0 || !(size > 0))
        return out;
    const double factor = size / matrix.width; // square symbol: both ratios are equal
    out.width = static_cast<int>(matrix.width * factor);
    out.height = out.width;
    if (out.width <= 0)
        return out;
    out.grey.resize(static_cast<qsizetype>(out.width) * out.height);
    for (int y = 0; y < out.height; ++y) {
        const int my = qMin(matrix.width - 1, static_cast<int>(std::floor(y / factor)));
        for (int x = 0; x < out.width; ++x) {
            const int mx = qMin(matrix.width - 1, static_cast<int>(std::floor(x / factor)));
            out.grey[static_cast<qsizetype>(y) * out.width + x] = matrix.dark(mx, my) ? char(0) : char(-1);
        }
    }
    return out;
}

std::optional<QrBitmap> QrCodeGenerator::getQRCodeWithInfo(const QString &info, double size)
{
    const auto matrix = encode(info);
    if (!matrix)
        return std::nullopt;
    QrBitmap bitmap = scaleNearest(*matrix, size);
    if (bitmap.width == 0)
        return std::nullopt;
    return bitmap;
}

QString QrCodeGenerator::renderHalfBlocks(const QrMatrix &matrix, int margin, bool invert)
{
    const int total = matrix.width + 2 * margin;
    const auto ink = [&](int x, int y) {
        const int mx = x - margin, my = y - margin;
        const bool dark = mx >= 0 && my >= 0 && mx < matrix.width && my < matrix.width && matrix.dark(mx, my);
        return invert ? !dark : dark;
    };
    QString out;
    for (int y = 0; y < total; y += 2) {
        for (int x = 0; x < total; ++x) {
            const bool top = ink(x, y);
            const bool bottom = y + 1 < total && ink(x, y + 1);
            if (top && bottom)
                out.append(QChar(0x2588)); // full block
            else if (top)
                out.append(QChar(0x2580)); // upper half
            else if (bottom)
                out.append(QChar(0x2584)); // lower half
            else
                out.append(QLatin1Char(' '));
        }
        out.append(QLatin1Char('\n'));
    }
    return out;
}
