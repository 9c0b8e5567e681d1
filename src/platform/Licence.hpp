#pragma once

namespace quorvane {

// Whether the person may let an agent apply changes and run git. The gate stays in
// the code so a different licence can refuse; the community licence grants.
class LicenceCheck {
public:
    virtual ~LicenceCheck() = default;
    virtual bool grants() const = 0;
};

class CommunityLicence final : public LicenceCheck {
public:
    bool grants() const override { return true; }
};

}  // namespace quorvane
