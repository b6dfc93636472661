#include "opener/viewer/Keyboard.h"

#include <QGuiApplication>
#include <QKeyEvent>
#include <utility>

namespace zelvo::opener {

namespace {

/// X11/keysymdef.h.
enum Keysym : std::uint32_t {
    none = 0,
    deadKeys = 0xFE50,
    deadKeysEnd = 0xFE93,
    isoLeftTab = 0xFE20,
    tab = 0xFF09,
    multiKey = 0xFF20,
    f1 = 0xFFBE,
    unicode = 0x01000000,
};

struct NamedKey {
    int key;
    std::uint32_t keysym;
};
constexpr NamedKey namedKeys[] = {
    {Qt::Key_Backspace, 0xFF08},  {Qt::Key_Tab, tab},        {Qt::Key_Backtab, tab},
    {Qt::Key_Return, 0xFF0D},     {Qt::Key_Enter, 0xFF8D},   {Qt::Key_Pause, 0xFF13},
    {Qt::Key_ScrollLock, 0xFF14}, {Qt::Key_SysReq, 0xFF15},  {Qt::Key_Escape, 0xFF1B},
    {Qt::Key_Home, 0xFF50},       {Qt::Key_Left, 0xFF51},    {Qt::Key_Up, 0xFF52},
    {Qt::Key_Right, 0xFF53},      {Qt::Key_Down, 0xFF54},    {Qt::Key_PageUp, 0xFF55},
    {Qt::Key_PageDown, 0xFF56},   {Qt::Key_End, 0xFF57},     {Qt::Key_Print, 0xFF61},
    {Qt::Key_Insert, 0xFF63},     {Qt::Key_Menu, 0xFF67},    {Qt::Key_Delete, 0xFFFF},
    {Qt::Key_Shift, 0xFFE1},      {Qt::Key_Control, 0xFFE3}, {Qt::Key_Alt, 0xFFE9},
    {Qt::Key_Meta, 0xFFEB},       {Qt::Key_Super_L, 0xFFEB}, {Qt::Key_Super_R, 0xFFEC},
};

/// AltGr and its kin (ISO_Level2_Latch to ISO_Level5_Lock, Mode_switch), Caps, Shift and Num Lock.
bool choosesCharacters(std::uint32_t keysym) {
    return (keysym >= 0xFE01 && keysym <= 0xFE13) || keysym == 0xFF7E || keysym == 0xFF7F ||
           keysym == 0xFFE5 || keysym == 0xFFE6;
}

std::uint32_t keysymOf(char32_t character) {
    if (character == '\n')
        return 0xFF0D;
    if (character < 0x20)
        return 0xFF00U | character;
    const bool isLatin1 = character <= 0x7E || (character >= 0xA0 && character <= 0xFF);
    return isLatin1 ? character : unicode | character;
}

std::uint32_t keysymOf(const QKeyEvent& event) {
    // Of X11 and Wayland, whose native keys are keysyms, and that of a Tab with Shift is its own.
    static const bool isNative =
        QGuiApplication::platformName() == QLatin1String("xcb") ||
        QGuiApplication::platformName().startsWith(QLatin1String("wayland"));
    if (isNative && event.nativeVirtualKey() != 0)
        return event.nativeVirtualKey() == isoLeftTab ? tab : event.nativeVirtualKey();
    for (const auto& [key, keysym] : namedKeys) {
        if (event.key() == key)
            return keysym;
    }
    if (event.key() >= Qt::Key_F1 && event.key() <= Qt::Key_F35)
        return f1 + static_cast<std::uint32_t>(event.key() - Qt::Key_F1);
    const auto text = event.text().toUcs4();
    if (!text.isEmpty() && text[0] >= 0x20 && text[0] != 0x7F)
        return keysymOf(static_cast<char32_t>(text[0]));
    // With Ctrl the text is a control character; the key is a capital letter.
    const bool isCharacter = event.key() >= 0x20 && event.key() < Qt::Key_Escape;
    return isCharacter ? keysymOf(QChar::toLower(static_cast<char32_t>(event.key()))) : none;
}

std::uint32_t placeOf(const QKeyEvent& event) {
    return event.nativeScanCode() != 0 ? event.nativeScanCode()
                                       : 0x80000000U | static_cast<std::uint32_t>(event.key());
}

}  // namespace

void Keyboard::press(const QKeyEvent& event) {
    const auto keysym = keysymOf(event);
    const bool isDead = keysym == multiKey || (keysym >= deadKeys && keysym <= deadKeysEnd);
    if (event.isAutoRepeat() || keysym == none || isDead || choosesCharacters(keysym))
        return;
    held_[placeOf(event)] = keysym;
    send_(keysym, true);
}

void Keyboard::release(const QKeyEvent& event) {
    auto held = held_.extract(placeOf(event));
    if (event.isAutoRepeat() && held)
        held_.insert(std::move(held));
    else if (held)
        send_(held.mapped(), false);
}

void Keyboard::type(const QString& text) {
    for (auto character : text.toUcs4())
        strike({keysymOf(static_cast<char32_t>(character))});
}

void Keyboard::strike(const std::vector<std::uint32_t>& keysyms,
                      const std::function<void()>& meanwhile) {
    for (auto keysym : keysyms)
        send_(keysym, true);
    if (meanwhile)
        meanwhile();
    for (auto keysym = keysyms.rbegin(); keysym != keysyms.rend(); ++keysym)
        send_(*keysym, false);
}

void Keyboard::releaseAll() {
    for (const auto& [place, keysym] : std::exchange(held_, {}))
        send_(keysym, false);
}

}  // namespace zelvo::opener
