#include "term/key_decoder.h"

namespace treescope {

namespace {

constexpr int escapeByte = 27;

int arrowKey(int letter) {
  switch (letter) {
    case 'A':
      return KEY_UP;
    case 'B':
      return KEY_DOWN;
    case 'C':
      return KEY_RIGHT;
    default:
      return KEY_LEFT;
  }
}

int digitKey(int digit) {
  switch (digit) {
    case '1':
      return KEY_HOME;
    case '3':
      return KEY_DC;
    case '4':
      return KEY_END;
    case '5':
      return KEY_PPAGE;
    default:
      return KEY_NPAGE;
  }
}

}  // namespace

std::optional<int> KeyDecoder::take(int byte) {
  switch (byte) {
    case escapeByte:
      state_ = State::afterEscape;
      return std::nullopt;
    case '[':
      if (state_ != State::afterEscape) {
        return deliver(byte);
      }
      state_ = State::afterBracket;
      return std::nullopt;
    case '1':
    case '3':
    case '4':
    case '5':
    case '6':
      return takeDigit(byte);
    case 'A':
    case 'B':
    case 'C':
    case 'D':
      return takeArrow(byte);
    case '~':
      return takeTilde();
    default:
      return deliver(byte);
  }
}

std::optional<int> KeyDecoder::deliver(int key) {
  state_ = State::clean;
  return key;
}

std::optional<int> KeyDecoder::takeDigit(int digit) {
  if (state_ != State::afterBracket) {
    return deliver(digit);
  }
  state_ = State::afterDigit;
  digit_ = digit;
  return std::nullopt;
}

std::optional<int> KeyDecoder::takeArrow(int letter) {
  return deliver(state_ == State::afterBracket ? arrowKey(letter) : letter);
}

std::optional<int> KeyDecoder::takeTilde() {
  return deliver(state_ == State::afterDigit ? digitKey(digit_) : '~');
}

}  // namespace treescope
