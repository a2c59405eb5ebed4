// Nothing of it is needed here.
#pragma once
