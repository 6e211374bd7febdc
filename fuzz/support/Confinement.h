#pragma once

#include <QtCore/QByteArray>

/// While one of these lives, a file that is opened for writing, created, linked, renamed or removed outside `directory`
/// ends the program with a finding. Names relative to the working directory count as inside. Only one may exist at a
/// time, and none while libFuzzer accesses its own files.
class Confinement
{
public:
    explicit Confinement(const QByteArray& directory);
    ~Confinement();
    Confinement(const Confinement&) = delete;
    Confinement& operator=(const Confinement&) = delete;
};
