#include "PlanningTestSupport.h"
#include "TestRegistry.h"

#include "planning/UpdatePathPlanner.h"

#include <QRandomGenerator>
#include <QtTest>

#include <vector>

using namespace Morvantix;

namespace {

// The planner as it was before it went sparse, kept as the judge of which chain is right: four dense
// n by n tables (-1: none), filled row by row from the bottom, a cell lowered by a split point only
// when strictly cheaper as unsigned numbers, and the route read back from the split points.
struct ReferencePlanner
{
    explicit ReferencePlanner(int size)
        : n(size)
        , weight(cells(-1))
        , dist(cells(-1))
        , split(cells(-1))
        , patchIndex(cells(-1))
    { }

    std::vector<qint64> cells(qint64 fill) const { return std::vector<qint64>(std::size_t(n) * n, fill); }
    qint64& at(std::vector<qint64>& table, int row, int column)
    {
        return table[std::size_t(row) * n + column];
    }

    void fillIntervals(int target)
    {
        for (int i = target - 1; i >= 0; --i) {
            for (int j = i + 1; j <= target; ++j)
                at(dist, i, j) = at(weight, i, j);
            for (int m = i + 1; m < target; ++m) {
                const qint64 head = at(dist, i, m);
                if (head == -1)
                    continue;
                for (int j = m + 1; j <= target; ++j) {
                    if (at(dist, m, j) == -1)
                        continue;
                    const quint64 sum = quint64(head) + quint64(at(dist, m, j));
                    if (sum < quint64(at(dist, i, j))) {
                        at(dist, i, j) = qint64(sum);
                        at(split, i, j) = m - i;
                    }
                }
            }
        }
    }

    void buildPath(QVector<int>& path, int i, int j)
    {
        while (at(split, i, j) != -1) {
            const int m = i + int(at(split, i, j));
            buildPath(path, i, m);
            i = m;
        }
        path.append(i);
    }

    bool shortestPath(int start, int target, QVector<int>& path)
    {
        for (int k = start; k <= target; ++k)
            at(dist, k, k) = 0;
        for (int i = 0; i + 1 < n; ++i) {
            at(dist, i, i) = 0;
            at(dist, i, i + 1) = at(weight, i, i + 1);
        }
        fillIntervals(target);
        if (at(dist, start, target) == -1)
            return false;
        buildPath(path, start, target);
        path.append(target);
        return true;
    }

    int n;
    std::vector<qint64> weight, dist, split, patchIndex;
};

QString referenceRoute(int n, int start, int target, const QVector<PatchEdge>& edges)
{
    ReferencePlanner planner(n);
    for (const PatchEdge& edge : edges) {
        planner.at(planner.weight, edge.from, edge.to) = edge.cost;
        planner.at(planner.patchIndex, edge.from, edge.to) = edge.position;
    }
    QVector<int> path;
    if (!planner.shortestPath(start, target, path))
        return QStringLiteral("none");
    QStringList steps;
    for (int k = 0; k + 1 < path.size(); ++k) {
        if (path[k] != path[k + 1])
            steps << QStringLiteral("%1>%2@%3")
                         .arg(path[k])
                         .arg(path[k + 1])
                         .arg(planner.at(planner.patchIndex, path[k], path[k + 1]));
    }
    return steps.join(' ');
}

QString route(int start, int target, const QVector<PatchEdge>& edges)
{
    QVector<PatchEdge> steps;
    if (!ShortestPath(start, target, edges, steps))
        return QStringLiteral("none");
    QStringList out;
    for (const PatchEdge& step : steps)
        out << QStringLiteral("%1>%2@%3").arg(step.from).arg(step.to).arg(step.position);
    return out.join(' ');
}

} // namespace

class TestPlannerReference : public QObject
{
    Q_OBJECT
private slots:
    void choosesTheReferenceChain();
};

// Small costs make ties everywhere; large ones (their sums still below 2^64) test the unsigned
// order. Edges go any way, repeat pairs and sometimes cost -1, which reads as "no patch".
void TestPlannerReference::choosesTheReferenceChain()
{
    LogCapture log;
    QRandomGenerator random(7);
    for (int graph = 0; graph < 5000; ++graph) {
        const int n = graph % 10 == 0 ? 40 : random.bounded(1, 12);
        const bool large = graph % 3 == 0;
        QVector<PatchEdge> edges(random.bounded(4 * n + 1));
        for (int position = 0; position < edges.size(); ++position) {
            const int from = random.bounded(n);
            const int hop = from + random.bounded(1, 5);
            const int to = random.bounded(5) == 0 || hop >= n ? random.bounded(n) : hop;
            const qint64 cost = random.bounded(40) == 0 ? -1
                : large                                 ? qint64(random.generate64() >> 8)
                                                        : qint64(random.bounded(7));
            edges[position] = { from, to, cost, position };
        }
        const bool anywhere = random.bounded(8) == 0;
        const int start = anywhere ? random.bounded(n) : random.bounded(n / 4 + 1);
        const int target = anywhere ? random.bounded(n) : n - 1 - random.bounded(n / 4 + 1);
        QCOMPARE(route(start, target, edges), referenceRoute(n, start, target, edges));
    }
}

CORE_TEST_CLASS(TestPlannerReference)
#include "tst_plannerreference.moc"
