#pragma once

#include <QtCore/QByteArray>

/// While one of these lives, opening a file for writing, or making, linking, renaming or removing one, anywhere but
/// below `directory` ends the program as a finding. Names relative to the working directory count as below it. Not to
/// be had twice at a time, nor while libFuzzer looks after its own files.
class Confinement
{
public:
    explicit Confinement(const QByteArray& directory);
    ~Confinement();
    Confinement(const Confinement&) = delete;
    Confinement& operator=(const Confinement&) = delete;
};
