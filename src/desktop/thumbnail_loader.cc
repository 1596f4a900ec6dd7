#include "desktop/thumbnail_loader.h"

#include <QImageReader>

namespace klipora::desktop {

ThumbnailLoader::ThumbnailLoader(int edge, qint64 cacheBytes, QObject* parent)
    : QObject(parent), edge_(edge) {
  // Two readers keep the disk busy without taking both cores from the
  // interface thread.
  pool_.setMaxThreadCount(2);
  cache_.setMaxCost(static_cast<qsizetype>(cacheBytes / 1024));  // cost in KiB
}

ThumbnailLoader::~ThumbnailLoader() {
  pool_.clear();
  pool_.waitForDone();
}

const QPixmap* ThumbnailLoader::request(const QString& key, const QString& path) {
  if (const QPixmap* hit = cache_.object(key)) return hit;
  if (path.isEmpty() || pending_.contains(key) || failed_.contains(key)) return nullptr;
  pending_.insert(key);
  const int edge = edge_;
  pool_.start([this, key, path, edge] {
    QImageReader reader(path);
    reader.setAutoTransform(true);
    QSize size = reader.size();
    if (size.isValid() && (size.width() > edge || size.height() > edge)) {
      reader.setScaledSize(size.scaled(edge, edge, Qt::KeepAspectRatio));
    }
    QImage image = reader.read();
    // Queued: the cache belongs to the interface thread; the loader outlives
    // the read because its destructor waits for the pool.
    QMetaObject::invokeMethod(
        this, [this, key, image] { finished(key, image); }, Qt::QueuedConnection);
  });
  return nullptr;
}

void ThumbnailLoader::waitForIdle() { pool_.waitForDone(); }

void ThumbnailLoader::finished(const QString& key, const QImage& image) {
  pending_.remove(key);
  if (image.isNull()) {
    failed_.insert(key);
    return;
  }
  auto* pixmap = new QPixmap(QPixmap::fromImage(image));
  const qint64 kib = qMax<qint64>(1, image.sizeInBytes() / 1024);
  cache_.insert(key, pixmap, static_cast<qsizetype>(kib));
  emit loaded(key);
}

}  // namespace klipora::desktop
