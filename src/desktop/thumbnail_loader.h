// ThumbnailLoader: the grid's thumbnails, read and scaled on worker threads
// and kept in a cache bounded by memory, so that scrolling never waits on a
// disk read and a library of any size costs at most the cache.
//
// request() answers a cached image at once; otherwise it starts one read per
// item (a second request while it runs is folded in) and emits loaded() on
// the interface thread when it ends. An unreadable or missing file yields no
// image: the caller keeps drawing its placeholder, and the file is not tried
// again in this process.
//
// Thread rules: interface thread; the workers touch only their own copies.
#pragma once

#include <QCache>
#include <QImage>
#include <QObject>
#include <QPixmap>
#include <QSet>
#include <QSize>
#include <QString>
#include <QThreadPool>

namespace klipora::desktop {

class ThumbnailLoader : public QObject {
  Q_OBJECT

 public:
  // `edge`: the longest side of a cached image; `cacheBytes`: the bound.
  explicit ThumbnailLoader(int edge, qint64 cacheBytes = 96ll << 20, QObject* parent = nullptr);
  ~ThumbnailLoader() override;

  // The cached pixmap of `key`, or nullptr after starting its read of `path`.
  const QPixmap* request(const QString& key, const QString& path);
  // Waits for every running read (tests, benchmarks).
  void waitForIdle();
  int pendingCount() const { return static_cast<int>(pending_.size()); }

 signals:
  void loaded(const QString& key);

 private:
  void finished(const QString& key, const QImage& image);

  int edge_;
  QThreadPool pool_;
  QCache<QString, QPixmap> cache_;
  QSet<QString> pending_;
  QSet<QString> failed_;
};

}  // namespace klipora::desktop
