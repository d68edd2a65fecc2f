// Running the catalogue's commands by name. Parameters are given by name as text and checked
// against the command's parameters (type, range, default) before anything runs; the images a
// command makes are stored under their output names only when the whole command succeeded, so
// a refused, failed or stopped command leaves every store as it was.
#pragma once
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <vantry_util/KrvExport.h>

class KrvImage;

struct KrvCommandArgument {
    std::string name;
    std::string value;
};

// One run of a command, as its body sees it: the checked parameters, typed, and the outputs it
// stages. Every accessor throws KrvBaseException for a parameter the command does not have.
class VANTRY_PROCESS_EXPORT KrvCommandCall {
public:
    KrvCommandCall(std::string command, std::vector<KrvCommandArgument> checked);
    ~KrvCommandCall();
    KrvCommandCall(const KrvCommandCall&) = delete;
    KrvCommandCall& operator=(const KrvCommandCall&) = delete;

    const std::string& Command() const noexcept;
    // An "image" parameter: the stored image it names.
    const KrvImage& Image(const char* param) const;
    // An "image" parameter that names several images, separated by commas, in order.
    std::vector<const KrvImage*> Images(const char* param) const;
    long Int(const char* param) const;
    double Float(const char* param) const;
    bool Bool(const char* param) const;
    // A "string" parameter, or the name a stored-object parameter ("filter", "lut", "sieve",
    // "segment", "group") gives.
    const std::string& Text(const char* param) const;

    // Stages `image` for the output parameter `param`; stored when the command ends well.
    void SetOutput(const char* param, KrvImage image);
    // Runs `commit` once the outputs are stored, when the command ended well: a body's results
    // other than images (result tables, segments) go through it, so that a refused or stopped
    // command leaves them untouched too.
    void OnSuccess(std::function<void()> commit);
    // Reports "<what> k/n" through the progress hook; throws KrvCommandStopped when the client's
    // flush hook answered false, so that the body unwinds and nothing is stored.
    void Step(const char* what, long done, long total);

    // The runner's side: the staged outputs go into the image store.
    void StoreOutputs();

private:
    struct State;
    std::unique_ptr<State> m_state;
};

// Thrown by KrvCommandCall::Step when the client asked the command to stop.
struct VANTRY_PROCESS_EXPORT KrvCommandStopped {};

using KrvCommandBody = std::function<void(KrvCommandCall&)>;

// Gives the catalogue command `name` its body (replacing any earlier one). The image kernels
// register theirs when the process service starts; measurement registers Measure and
// SieveClasses.
VANTRY_PROCESS_EXPORT void krvRegisterCommandBody(const std::string& name, KrvCommandBody body);

// Runs the catalogue command `name`. Throws KrvBaseException "<name>: <reason>" for an unknown
// command, an unknown, repeated, missing or ill-typed parameter, a value out of range, a missing
// image or object, or a failure of the body; nothing is stored then. Returns false when the
// client stopped it (nothing stored either), true when it ran and its outputs are stored.
VANTRY_PROCESS_EXPORT bool krvRunCommand(const std::string& name, const std::vector<KrvCommandArgument>& arguments);
