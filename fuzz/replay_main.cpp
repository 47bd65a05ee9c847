// Runs a fuzz target over saved inputs without libFuzzer, so that the seeds
// and every input that once found a fault are replayed by every CTest run,
// with whatever compiler and sanitizers the build uses.
//
// Usage: <target>_replay PATH...   (files, or directories of files)
#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <cstdint>
#include <cstdio>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

static int replayFile(const QString& path)
{
    QFile f(path);
    if (!f.open(QIODevice::ReadOnly)) {
        std::fprintf(stderr, "cannot read %s\n", qPrintable(path));
        return -1;
    }
    const QByteArray input = f.readAll();
    // A copy of exactly the input's size, as libFuzzer hands it over.
    std::vector<uint8_t> exact(input.begin(), input.end());
    LLVMFuzzerTestOneInput(exact.data(), exact.size());
    return 1;
}

int main(int argc, char** argv)
{
    int replayed = 0;
    for (int i = 1; i < argc; ++i) {
        const QString path = QString::fromLocal8Bit(argv[i]);
        const QFileInfo info(path);
        if (!info.exists()) {
            std::printf("%s: none yet\n", argv[i]); // a target without regression inputs
            continue;
        }
        QStringList files;
        if (info.isDir()) {
            for (const QString& name : QDir(path).entryList(QDir::Files, QDir::Name))
                if (!name.startsWith(QLatin1Char('.')) && name != QLatin1String("README.md"))
                    files.append(QDir(path).filePath(name));
        } else {
            files.append(path);
        }
        for (const QString& file : files) {
            const int r = replayFile(file);
            if (r < 0) return 1;
            replayed += r;
        }
    }
    std::printf("replayed %d inputs\n", replayed);
    return replayed > 0 ? 0 : 1;
}
