// The figures of gdsbench's inventory and adapter cases (inventory_cases.cpp)
// for the goals table. Plain data, filled by one thread.
#pragma once

#include <string>

struct InventoryFigures {
    bool measured = false;
    double pageRatio = 0;       // cached inventory page / get of two
    long pagePrograms = -1;     // processes a cached inventory page starts
    long adapterPrograms = -1;  // processes adapterFW[2] starts
    double noCardMs = -1;       // nextOrder while a 2 s card listing runs
};

// Starts its own server on a copy of sim/root, prints its rows and returns
// the figures.
InventoryFigures runInventoryCases(const std::string& binDir, const std::string& libDir, const std::string& sourceDir,
                                   const std::string& buildDir);
