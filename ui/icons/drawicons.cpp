// Draws the program's icons and wizard pictures as PNG files into the folder given as argument.
// Shapes only (no text), so the result does not depend on the fonts of the machine that runs it.
#include <QGuiApplication>
#include <QImage>
#include <QLinearGradient>
#include <QPainter>
#include <QPainterPath>
#include <cstdio>

namespace {

const QColor Ink(0x4d, 0x4e, 0x9d);
const QColor InkLight(0x8a, 0x8b, 0xd0);
const QColor Paper(0xf4, 0xf4, 0xfa);

QImage canvas(int w, int h)
{
    QImage image(w, h, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    return image;
}

// Five level bars of an audio meter inside the rectangle r.
void drawBars(QPainter &p, const QRectF &r, const QColor &color)
{
    const double heights[5] = {0.45, 0.8, 1.0, 0.65, 0.35};
    const double step = r.width() / 5.0;
    p.setPen(Qt::NoPen);
    p.setBrush(color);
    for (int i = 0; i < 5; ++i) {
        const double h = r.height() * heights[i];
        p.drawRoundedRect(QRectF(r.left() + i * step + step * 0.18, r.bottom() - h, step * 0.64, h),
                          step * 0.2, step * 0.2);
    }
}

// The rounded square with the meter bars: the program's logo.
QImage drawLogo(int size)
{
    QImage image = canvas(size, size);
    QPainter p(&image);
    p.setRenderHint(QPainter::Antialiasing);
    QLinearGradient fill(0, 0, 0, size);
    fill.setColorAt(0, InkLight);
    fill.setColorAt(1, Ink);
    p.setPen(Qt::NoPen);
    p.setBrush(fill);
    const double m = size * 0.04;
    p.drawRoundedRect(QRectF(m, m, size - 2 * m, size - 2 * m), size * 0.18, size * 0.18);
    drawBars(p, QRectF(size * 0.2, size * 0.22, size * 0.6, size * 0.56), Paper);
    return image;
}

// A "V" of two strokes over a sine wave: the studio application's mark.
QImage drawStudio(int size)
{
    QImage image = canvas(size, size);
    QPainter p(&image);
    p.setRenderHint(QPainter::Antialiasing);
    p.setPen(Qt::NoPen);
    p.setBrush(Ink);
    p.drawEllipse(QRectF(size * 0.04, size * 0.04, size * 0.92, size * 0.92));
    QPen pen(Paper, size * 0.09, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin);
    p.setPen(pen);
    p.drawPolyline(QPolygonF({QPointF(size * 0.28, size * 0.3), QPointF(size * 0.5, size * 0.72),
                              QPointF(size * 0.72, size * 0.3)}));
    QPainterPath wave;
    wave.moveTo(size * 0.18, size * 0.5);
    wave.cubicTo(size * 0.26, size * 0.38, size * 0.3, size * 0.62, size * 0.38, size * 0.5);
    pen.setWidthF(size * 0.035);
    pen.setColor(InkLight);
    p.setPen(pen);
    p.setBrush(Qt::NoBrush);
    p.drawPath(wave);
    p.drawPath(wave.translated(size * 0.44, 0));
    return image;
}

// The tall picture beside a wizard page: a soft gradient with a symbol near the top.
QImage watermarkBase(QPainter &p, QImage &image)
{
    QLinearGradient fill(0, 0, 0, image.height());
    fill.setColorAt(0, Ink);
    fill.setColorAt(1, InkLight);
    p.setRenderHint(QPainter::Antialiasing);
    p.fillRect(image.rect(), fill);
    drawBars(p, QRectF(20, image.height() - 70, image.width() - 40, 50), QColor(255, 255, 255, 60));
    return image;
}

QImage drawServer(int w, int h)
{
    QImage image = canvas(w, h);
    QPainter p(&image);
    watermarkBase(p, image);
    // Three stacked units of a rack, each with a status light.
    for (int i = 0; i < 3; ++i) {
        const QRectF unit(28, 50 + i * 40, w - 56, 30);
        p.setPen(QPen(Paper, 2));
        p.setBrush(QColor(255, 255, 255, 40));
        p.drawRoundedRect(unit, 5, 5);
        p.setPen(Qt::NoPen);
        p.setBrush(i == 1 ? QColor(0xf0, 0xc0, 0x40) : QColor(0x60, 0xe0, 0x80));
        p.drawEllipse(QPointF(unit.right() - 14, unit.center().y()), 5, 5);
        p.setBrush(Paper);
        p.drawRect(QRectF(unit.left() + 10, unit.center().y() - 2, unit.width() * 0.45, 4));
    }
    return image;
}

QImage drawSnmp(int w, int h)
{
    QImage image = canvas(w, h);
    QPainter p(&image);
    watermarkBase(p, image);
    // A small tree of nodes: one agent above three receivers.
    const QPointF root(w / 2.0, 70);
    const QPointF leaves[3] = {QPointF(w * 0.22, 160), QPointF(w * 0.5, 160), QPointF(w * 0.78, 160)};
    p.setPen(QPen(Paper, 3));
    for (const QPointF &leaf : leaves)
        p.drawLine(root, leaf);
    p.setPen(Qt::NoPen);
    p.setBrush(Paper);
    p.drawEllipse(root, 18, 18);
    p.setBrush(QColor(0xf0, 0xc0, 0x40));
    for (const QPointF &leaf : leaves)
        p.drawEllipse(leaf, 12, 12);
    return image;
}

QImage drawOsc(int w, int h)
{
    QImage image = canvas(w, h);
    QPainter p(&image);
    watermarkBase(p, image);
    // A sender with widening arcs.
    const QPointF centre(40, 120);
    p.setPen(Qt::NoPen);
    p.setBrush(Paper);
    p.drawEllipse(centre, 12, 12);
    p.setBrush(Qt::NoBrush);
    for (int i = 1; i <= 3; ++i) {
        p.setPen(QPen(Paper, 5, Qt::SolidLine, Qt::RoundCap));
        const double r = 12 + i * 24;
        p.drawArc(QRectF(centre.x() - r, centre.y() - r, 2 * r, 2 * r), -50 * 16, 100 * 16);
    }
    return image;
}

bool save(const QImage &image, const QString &path)
{
    if (image.save(path, "PNG"))
        return true;
    std::fprintf(stderr, "cannot write %s\n", qPrintable(path));
    return false;
}

} // namespace

int main(int argc, char *argv[])
{
    QGuiApplication app(argc, argv);
    const QString dir = argc > 1 ? QString::fromLocal8Bit(argv[1]) : QStringLiteral(".");
    bool ok = save(drawLogo(128), dir + "/logo.png");
    ok = save(drawStudio(64), dir + "/vexastudio.png") && ok;
    ok = save(drawServer(150, 300), dir + "/wizard-server.png") && ok;
    ok = save(drawSnmp(150, 300), dir + "/wizard-snmp.png") && ok;
    ok = save(drawOsc(150, 300), dir + "/wizard-osc.png") && ok;
    return ok ? 0 : 1;
}
