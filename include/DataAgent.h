// DataAgent: abstract base of every agent. Request processing drives an agent
// through seven operations (initialize, the three get and the three set
// steps); 1 means success. Agents belong to one connection and run on its
// thread; their DataHandler creates and deletes them. Also home of the
// process-wide hardware platform identity (getPlatform).
#pragma once

#include <string>

#include "AComponentLog.h"
#include "TokenMap.h"

class ConnectionHandler;
class DataHandler;

// The hardware platform. The numbers are fixed: the property service and
// per-platform tables compare them, so the gaps stay.
enum PLATFORM {
    PLATFORM_UNKNOWN = 0,
    PLATFORM_DRAVON = 1,
    PLATFORM_DRAVON_2U = 2,
    PLATFORM_ZENTH = 3,
    PLATFORM_KESTIN = 4,
    PLATFORM_MORLAC = 5,
    PLATFORM_PALLIX1 = 6,
    PLATFORM_PALLIX2 = 7,
    PLATFORM_RUSKEL = 8,
    PLATFORM_RUSKEL_RISER = 9,
    PLATFORM_TOVREL = 10,
    PLATFORM_QUENTAR = 11,
    PLATFORM_VORSHA1 = 12,
    PLATFORM_VORSHA2 = 13,
    PLATFORM_NIMBREL1 = 15,
    PLATFORM_ONDRIK = 17,
    PLATFORM_FENLOW = 18,
    PLATFORM_CASTREL = 20,
    PLATFORM_GREFF1 = 21,
    PLATFORM_GREFF2 = 22,
    PLATFORM_LURVEN = 24,
    PLATFORM_WESCAL = 25,
};

class DataAgent {
public:
    DataAgent(const char* name, DataHandler& handler);
    virtual ~DataAgent();
    DataAgent(const DataAgent&) = delete;
    DataAgent& operator=(const DataAgent&) = delete;

    virtual int initialize() = 0;
    virtual int preProcessGet(std::string& name, std::string& extra) = 0;
    virtual int processGet() = 0;
    virtual int postProcessGet(ConnectionHandler& connection) = 0;
    virtual int preProcessSet(std::string& name, TokenMap& arguments) = 0;
    virtual int processSet() = 0;
    virtual int postProcessSet(ConnectionHandler& connection, TokenMap& arguments) = 0;

    const char* getName() const { return m_name; }
    int getStatus() const { return m_status; }

    // Values of a set request's arguments (the first argument of `name`).
    // They never throw for missing or malformed arguments: the result says
    // whether a value was taken (1) or not (0).
    int setString(TokenMap& map, char* buffer, const char* name, int size, bool trim);
    void setString(const std::string& value, char* buffer, int size);
    int setInt(TokenMap& map, int& value, const char* name);
    int setBoolean(TokenMap& map, signed char& value, const char* name);
    int setByte(TokenMap& map, signed char& value, const char* name);
    int setuByte(TokenMap& map, unsigned char& value, const char* name);
    int lookupString(TokenMap& map, std::string& name, std::string& value);
    // Strict decimal: digits only (the empty text is 0); 1 when stored.
    int parseInt(const std::string& text, int& value);

    // One value from the controller's property tool ("sender"); "" when the
    // tool cannot run or prints nothing. Blocks while the tool runs.
    std::string getValue(const char* name);
    // Host power state from getValue("pwState"); unreadable counts as on.
    bool powerOff();
    bool powerOn();
    // Blocks the calling thread for the given time; returns 0.
    int threadSleep(int seconds, int milliseconds);

    // The platform this controller sits in, read from "/etc/product" (and the
    // chassis and riser pins) on first demand and cached; an unknown product
    // is looked up again at the next call.
    static PLATFORM getPlatform();
    // Forgets the cached platform (tests switch platform roots).
    static void resetPlatformCache() { platform_ = 0; }

protected:
    const char* m_name;
    DataHandler* m_dataHandler;
    AComponentLog m_log;
    int m_status;
    char* m_backendText;

private:
    static int platform_;
};
