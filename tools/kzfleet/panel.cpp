#include "panel.h"

namespace Panel {

QByteArray screen(int index, unsigned page, int x, int y)
{
    QByteArray image = QByteArrayLiteral("P5\n") + QByteArray::number(kWidth) + ' ' +
                       QByteArray::number(kHeight) + QByteArrayLiteral("\n255\n");
    const int header = image.size();
    image.resize(header + kWidth * kHeight);
    uchar* px = reinterpret_cast<uchar*>(image.data()) + header;
    for (int row = 0; row < kHeight; ++row)
        for (int col = 0; col < kWidth; ++col) {
            // A background shaded by page and machine, a title bar, and one
            // button per page along the bottom, the current one lit.
            uchar v = uchar((col + row + int(page) * 29 + index * 7) & 0x3F);
            if (row < 16) v = 0xC0;
            if (row >= kHeight - 20 && row < kHeight - 4) {
                const int button = col / (kWidth / int(kPages));
                v = unsigned(button) == page ? 0xFF : 0x80;
            }
            if (x >= 0 && y >= 0 && col >= x - 2 && col <= x + 2 && row >= y - 2 && row <= y + 2)
                v = 0;
            px[row * kWidth + col] = v;
        }
    return image;
}

unsigned pageAfterTouch(unsigned page, int x)
{
    return x < kWidth / 2 ? (page + kPages - 1) % kPages : (page + 1) % kPages;
}

} // namespace Panel
