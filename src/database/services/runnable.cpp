#include "database/services/runnable.h"

#include "database/services/threadannotations.h"

Runnable::Runnable() = default;
Runnable::~Runnable() = default;

void Runnable::stop()
{
    const QMutexLocker locker(&m_mutex);
    annotateAcquire(&m_mutex);
    m_canRun = false;
    annotateRelease(&m_mutex);
}

bool Runnable::canRun() const
{
    const QMutexLocker locker(&m_mutex);
    annotateAcquire(&m_mutex);
    const bool result = m_canRun;
    annotateRelease(&m_mutex);
    return result;
}
