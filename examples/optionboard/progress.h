#pragma once

#include <QtCore/qstring.h>

/// Tells on stderr what is being read: on a terminal in one line that is written over, elsewhere in
/// one line each.
class Progress
{
public:
    explicit Progress(int count);
    ~Progress() { clear(); }
    Progress(const Progress &) = delete;
    Progress &operator=(const Progress &) = delete;

    /// \param i  from 0
    void show(int i, const QString &name);
    /// Gives the line up, before something else is written to the terminal.
    void clear();

private:
    const int m_count;
    const bool m_terminal;
    bool m_shown = false;
};
