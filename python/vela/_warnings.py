"""The categories of warnings that the module gives."""


class VelaWarning(UserWarning):
    """Something of a scene was left out, or done in another way than asked for."""


class ConversionWarning(VelaWarning):
    """An array could not be read where it is and was converted; the text names the argument."""
