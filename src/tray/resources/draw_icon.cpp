// Draws the status item's picture (icon.png, icon@2x.png, icon@3x.png) from
// vector paths, so every density gets pixels of its own rather than a scaled
// bitmap. Run at build time: draw_icon OUTPUT_DIR
#include <QDir>
#include <QImage>
#include <QLinearGradient>
#include <QPainter>
#include <QPainterPath>
#include <cstdio>

namespace {

// A shield with a check mark, on an 18 x 18 grid.
QImage draw(int scale) {
    const int side = 18 * scale;
    QImage image(side, side, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.scale(scale, scale);

    QPainterPath shield;
    shield.moveTo(9, 1.2);
    shield.cubicTo(11.4, 2.6, 13.6, 3.2, 16, 3.3);
    shield.cubicTo(16.1, 9.6, 13.7, 14.3, 9, 16.8);
    shield.cubicTo(4.3, 14.3, 1.9, 9.6, 2, 3.3);
    shield.cubicTo(4.4, 3.2, 6.6, 2.6, 9, 1.2);
    shield.closeSubpath();

    QLinearGradient fill(0, 1, 0, 17);
    fill.setColorAt(0, QColor(38, 166, 154));
    fill.setColorAt(1, QColor(21, 101, 192));
    painter.setPen(QPen(QColor(10, 60, 110), 0.8));
    painter.setBrush(fill);
    painter.drawPath(shield);

    QPainterPath check;
    check.moveTo(5.6, 8.9);
    check.lineTo(8.1, 11.4);
    check.lineTo(12.6, 6.4);
    painter.setPen(QPen(Qt::white, 1.9, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
    painter.setBrush(Qt::NoBrush);
    painter.drawPath(check);
    return image;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: draw_icon OUTPUT_DIR\n");
        return 64;
    }
    const QDir dir(QString::fromLocal8Bit(argv[1]));
    const bool ok = draw(1).save(dir.filePath(QStringLiteral("icon.png"))) &&
                    draw(2).save(dir.filePath(QStringLiteral("icon@2x.png"))) &&
                    draw(3).save(dir.filePath(QStringLiteral("icon@3x.png")));
    return ok ? 0 : 1;
}
