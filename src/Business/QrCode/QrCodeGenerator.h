#pragma once

#include <QByteArray>
#include <QString>

#include <optional>
#include <vector>

// A QR symbol as a square of modules, row by row; true is a dark module.
struct QrMatrix
{
    int width = 0;
    std::vector<bool> modules;

    bool dark(int x, int y) const
    {
        return modules[static_cast<size_t>(y) * static_cast<size_t>(width) + static_cast<size_t>(x)];
    }
};

// An 8-bit grey picture without alpha, row by row (0 black, 255 white). The windows wrap it
// as an image of its natural size.
struct QrBitmap
{
    int width = 0;
    int height = 0;
    QByteArray grey;

    unsigned char pixel(int x, int y) const
    {
        return static_cast<unsigned char>(grey[static_cast<qsizetype>(y) * width + x]);
    }
};

class QrCodeGenerator
{
public:
    // Encodes the text's UTF-8 bytes in byte mode with error correction M. nullopt when the
    // text is empty or too long for a QR symbol.
    static std::optional<QrMatrix> encode(const QString &info);

    // The symbol scaled up for a square of `size` pixels: factor = min(size / width,
    // size / height), picture = width × factor by height × factor, nearest neighbour so
    // that modules stay sharp. nullopt when nothing can be drawn.
    static std::optional<QrBitmap> getQRCodeWithInfo(const QString &info, double size);
    static QrBitmap scaleNearest(const QrMatrix &matrix, double size);

    // The symbol for a text terminal: two module rows per line with half-block characters
    // and a quiet zone of `margin` modules. `invert` draws light modules as blocks, which is
    // what a terminal with light text on a dark background needs.
    static QString renderHalfBlocks(const QrMatrix &matrix, int margin = 2, bool invert = true);
};
