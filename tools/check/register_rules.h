// Identification, sensor, settings and trigger: what the driver walks through before the first picture.
#pragma once

#include <memory>

#include "check/interview.h"

namespace plendix::check {

/// Writes a register's former value back when it goes, also where the check ends before its time. The rule
/// fails when the register does not hold it then.
class Restored {
public:
    Restored(Interview& interview, Rule rule, int number, std::uint16_t before)
        : interview_(interview), rule_(rule), number_(number), before_(before) {}
    ~Restored();
    Restored(const Restored&) = delete;
    Restored& operator=(const Restored&) = delete;

    /// Sooner, and once.
    void restore();

private:
    Interview& interview_;
    Rule rule_;
    int number_;
    std::uint16_t before_;
    bool done_ = false;
};

struct Sensor {
    link::Area area;
    bool known = false;
};

/// Model and firmware, for the report.
struct Identity {
    std::optional<std::uint16_t> model, firmware;
};

Identity check_identity(Interview& interview);
Sensor check_sensor(Interview& interview);
void check_settings(Interview& interview);
void check_trigger(Interview& interview);

/// A register that is changed for as long as this lives.
class KeptRegister {
public:
    explicit KeptRegister(Interview& interview);
    /// Whether it still holds what was written; then its former value is put back.
    void judge();

private:
    Interview& interview_;
    std::unique_ptr<Restored> restored_;
    std::uint16_t written_ = 0;
    std::string trouble_;
};

}  // namespace plendix::check
